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
#include "tools/check/KeyNames.h"
#include "tools/text/Characters.h"

namespace {

// How a file names its schema to editors.
constexpr const char* kSchemaKey = "$schema";

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
      std::ranges::move(FindSyntaxErrors(text_),
                        std::back_inserter(result_.findings));
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
    const auto visit = [this](bool is_named) {
      return [this, is_named](int index, JsonObject item) {
        next_ = index;
        result_.items.push_back(
            CheckItem(item, {index, Item(index), keys_}, is_named));
        if (is_named) {
          FindDuplicate(result_.items.back());
        }
        ++next_;
      };
    };
    try {
      WalkItems(document, visit(true), visit(false));
      FindUnreadKeys();
    } catch (...) {
      FindWalkError();
    }
    for (const JsonKey& key : keys_.ReplacedKeysAt(OffsetOf(root_))) {
      Add(IndexOf(key.name) ? RuleName("item-replaced")
                            : RuleName("duplicate-key"),
          {{}, key.name, key.offset}, "occurs more than once");
    }
  }

  const Json::Value& Item(int index) const {
    return std::as_const(root_)[std::to_string(index)];
  }

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
              Quoted(*item.name) + " is also the name of item " +
                  std::to_string(earlier)));
  }

  void FindWalkError() {
    if (!root_.isObject() && !root_.isNull()) {
      Add("top-level-type", {{}, "", OffsetOf(root_)},
          IsNot(root_, "an object") + ", at its top level");
      return;
    }
    const Json::Value& item = Item(next_);
    if (!item.isObject()) {
      Add("item-type", {next_, "", OffsetOf(item)}, IsNot(item, "an object"));
      return;
    }
    const Json::Value& name = item["name"];
    Add("name-type", {next_, "name", OffsetOf(name)}, IsNot(name, "a string"));
  }

  void FindUnreadKeys() {
    bool has_other_items = false;
    for (const JsonKey& key : keys_.KeysAt(OffsetOf(root_))) {
      const Place place{{}, key.name, key.offset};
      if (const auto index = IndexOf(key.name)) {
        if (*index > static_cast<std::uint64_t>(next_)) {
          Add("gap", place,
              "comes after a gap: there is no " +
                  Quoted(std::to_string(next_)));
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
