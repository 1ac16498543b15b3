#include "tools/check/Check.h"

#include <json/json.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

#include "common/json/JsonObject.h"
#include "launcher/Items.h"
#include "tools/check/ItemCheck.h"
#include "tools/check/JsonText.h"
#include "tools/check/SyntaxErrors.h"
#include "tools/text/Characters.h"

namespace {

// How a file names its schema to editors.
constexpr const char* kSchemaKey = "$schema";

void Append(Findings& findings, Findings more) {
  std::ranges::move(more, std::back_inserter(findings));
}

class DocumentCheck {
 public:
  DocumentCheck(const std::string& text, CheckResult& result)
      : text_(text), keys_(ScanJson(text)), result_(result) {}

  void Run() {
    try {
      JsonObject document(text_.data(),
                          static_cast<unsigned int>(text_.size()));
      Json::Reader().parse(text_, root_, false);
      Walk(document);
      FindTrailingText();
    } catch (...) {
      Append(result_.findings, FindSyntaxErrors(text_));
    }
    FindRawControls();
    if (keys_.comment && root_.getOffsetLimit() > 0) {
      Add("comment", {{}, "", *keys_.comment}, "has a comment");
    }
  }

 private:
  void Add(RuleName rule, Place place, std::string problem) {
    result_.findings.push_back(
        Found(rule, std::move(place), std::move(problem)));
  }

  // The launcher's own walk. What it throws ends the launcher's start-up.
  void Walk(JsonObject document) {
    try {
      WalkItems(
          document,
          [this](int index, JsonObject item) {
            next_ = index;
            result_.items.push_back(CheckItem(item, Source(index)));
            FindDuplicate(result_.items.back());
            ++next_;
          },
          [this](int index, JsonObject) {
            result_.items.push_back(CheckNamelessItem(Source(index)));
            ++next_;
          });
      FindUnreadKeys();
    } catch (...) {
      FindWalkError();
    }
    if (root_.isObject()) {
      FindReplacedItems();
    }
  }

  const Json::Value& Item(int index) const {
    return std::as_const(root_)[std::to_string(index)];
  }

  ItemSource Source(int index) const { return {index, Item(index), keys_}; }

  void FindDuplicate(CheckedItem& item) {
    const auto [entry, is_new] = indices_.emplace(*item.name, item.index);
    if (is_new) {
      return;
    }
    const int earlier = std::exchange(entry->second, item.index);
    result_.items[static_cast<std::size_t>(earlier)].runs = false;
    item.findings.push_back(
        Found("name-duplicate",
              {item.index, "name", OffsetOf(Item(item.index)["name"])},
              "\"" + Printable(*item.name) + "\" is also the name of item " +
                  std::to_string(earlier)));
  }

  void FindWalkError() {
    if (!root_.isObject() && !root_.isNull()) {
      Add("top-level-type", {{}, "", OffsetOf(root_)},
          std::string("contains ") + Describe(root_) +
              ", not an object, at its top level");
      return;
    }
    const Json::Value& item = Item(next_);
    if (!item.isObject()) {
      Add("item-type", {next_, "", OffsetOf(item)},
          std::string("is ") + Describe(item) + ", not an object");
      return;
    }
    const Json::Value& name = item["name"];
    Add("name-type", {next_, "name", OffsetOf(name)},
        std::string("is ") + Describe(name) + ", not a string");
  }

  void FindUnreadKeys() {
    bool has_other_items = false;
    for (const JsonKey& key : keys_.KeysAt(OffsetOf(root_))) {
      const Place place{{}, key.name, key.offset};
      if (IsIndex(key.name)) {
        if (IsAfterGap(key.name)) {
          Add("gap", place,
              "comes after a gap: there is no \"" + std::to_string(next_) +
                  "\"");
          has_other_items = true;
        }
      } else if (root_[key.name].isObject() || root_[key.name].isArray()) {
        Add("stray-item", place, "is not the number of an item");
        has_other_items = true;
      } else if (key.name != kSchemaKey) {
        Add("unknown-key", place, "is not the number of an item");
      }
    }
    if (next_ == 0 && !has_other_items) {
      Add("no-items", {{}, "", OffsetOf(root_)}, "contains no item \"0\"");
    }
  }

  void FindReplacedItems() {
    for (Finding& finding : FindReplacedKeys(root_, keys_, {})) {
      const Place& place = finding.place;
      result_.findings.push_back(
          IsIndex(place.key) ? Found("item-replaced", place, finding.problem)
                             : finding);
    }
  }

  bool IsAfterGap(const std::string& key) const {
    const std::string last = std::to_string(next_);
    return key.size() > last.size() ||
           (key.size() == last.size() && key > last);
  }

  void FindTrailingText() {
    const std::size_t end =
        NextToken(text_, static_cast<std::size_t>(root_.getOffsetLimit()));
    if (end < text_.size()) {
      const bool has_items = text_.find('"', end) != std::string::npos;
      Add(has_items ? RuleName("closed-early") : RuleName("trailing-text"),
          {{}, "", end}, "continues after the end of the document");
    }
  }

  void FindRawControls() {
    for (const std::size_t offset : keys_.raw_controls) {
      Add("raw-control", {{}, "", offset},
          "contains a string with an unescaped control character");
    }
  }

  const std::string& text_;
  const JsonText keys_;
  CheckResult& result_;
  Json::Value root_;
  std::map<std::string, int> indices_;
  int next_ = 0;  // the index that the walk has reached
};

}  // namespace

CheckResult CheckItems(const ItemsText& file) {
  CheckResult result{file.readable, {}, file.findings};
  if (file.text) {
    DocumentCheck(*file.text, result).Run();
    CountLines(*file.text, result);
  }
  return result;
}

bool IsIndex(const std::string& key) {
  return !key.empty() && (key == "0" || key[0] != '0') &&
         std::ranges::all_of(key, [](char c) { return c >= '0' && c <= '9'; });
}
