#include "tools/check/Check.h"

#include <algorithm>
#include <map>
#include <utility>

#include "common/json/JsonErrors.h"
#include "common/json/JsonObject.h"
#include "launcher/Items.h"
#include "tools/check/ItemCheck.h"
#include "tools/check/ItemsFile.h"
#include "tools/check/JsonSource.h"
#include "tools/text/Characters.h"

namespace {

constexpr const char* kNeverStarts =
    "the launcher logs \"[LAUNCHER  ] Error while parsing saved json "
    "string.\" and ends with status 0";
constexpr const char* kEndsStartup =
    "the launcher logs \"[LAUNCHER  ] Error while parsing saved json "
    "string.\", stops the items before this one and ends with status 0; it "
    "kills its process group where one of them has not been started yet";

// How a file names its schema to editors.
constexpr const char* kSchemaKey = "$schema";

bool IsIndex(const std::string& key) {
  return !key.empty() && (key == "0" || key[0] != '0') &&
         std::ranges::all_of(key, [](char c) { return c >= '0' && c <= '9'; });
}

class DocumentCheck {
 public:
  DocumentCheck(const std::string& text, CheckResult* result)
      : text_(text), source_(LocateJson(text)), result_(result) {}

  void Run() {
    try {
      JsonObject document(text_.data(),
                          static_cast<unsigned int>(text_.size()));
      Walk(document);
    } catch (...) {
      FindSyntaxErrors();
    }
  }

 private:
  void Add(Severity severity, const std::string& id, std::size_t offset,
           const std::string& key, const std::string& problem,
           const std::string& effect, const std::string& advice) {
    result_->findings.push_back(
        {severity, id, offset, {}, key, problem, effect, advice});
  }

  void FindSyntaxErrors() {
    for (const JsonError& error : FindJsonErrors(text_)) {
      Add(Severity::kError, "not-json", error.offset, "",
          "is not JSON: " + error.message, kNeverStarts,
          "correct the text at this place, or just before it");
    }
  }

  // The launcher's own walk. What leaves it ends the launcher's start-up.
  void Walk(JsonObject document) {
    try {
      WalkItems(
          document, [this](int index, JsonObject item) { Named(index, item); },
          [this](int index, JsonObject) { Nameless(index); });
      FindUnreadKeys();
    } catch (...) {
      FindWalkError();
    }
    FindReplacedMembers(source_.root, "", {}, &result_->findings);
    FindOddities();
  }

  void Named(int index, JsonObject item) {
    const JsonMember& member = Item(index).Get("name");
    const std::string name = item.GetObject("name");
    ++next_;
    Findings& findings = result_->findings;
    CheckText(item["name"], member, "name", index, name, &findings);
    if (name.empty() && member.value.type == JsonType::kString) {
      findings.push_back({Severity::kWarning, "name-empty", member.value.offset,
                          index, "name", "is empty",
                          "the log does not tell whose lines are whose",
                          "write a name"});
    }
    FindDuplicate(index, name, member);
    CheckedItem& checked = result_->items.emplace_back();
    checked.index = index;
    checked.name = name;
    checked.runs = true;
    CheckItem(item, Item(index), &checked, &findings);
  }

  void Nameless(int index) {
    ++next_;
    result_->items.emplace_back().index = index;
    result_->findings.push_back(
        {Severity::kWarning, "name-missing", Item(index).offset, index, "name",
         "is missing",
         "the item is skipped; the launcher logs \"[LAUNCHER  ] There is an "
         "item has no name.\" and goes on with the next",
         "give the item a name"});
    CheckItemKeys(Item(index), index, &result_->findings);
  }

  void FindDuplicate(int index, const std::string& name,
                     const JsonMember& member) {
    const auto [entry, is_new] = indices_.emplace(name, index);
    if (is_new) {
      return;
    }
    const int earlier = std::exchange(entry->second, index);
    result_->items[static_cast<std::size_t>(earlier)].runs = false;
    result_->findings.push_back(
        {Severity::kWarning, "name-duplicate", member.value.offset, index,
         "name",
         "\"" + Printable(name) + "\" is the name of item " +
             std::to_string(earlier) + ", too",
         "the earlier item is killed as soon as the launcher comes to this "
         "one, "
         "and the launcher's process group with it if that item has not been "
         "started yet",
         "give each item a name of its own"});
  }

  void FindWalkError() {
    const JsonType type = source_.root.type;
    if (type != JsonType::kObject && type != JsonType::kNull) {
      Add(Severity::kError, "top-level-type", source_.root.offset, "",
          std::string("the top level is ") + Describe(type) + ", not an object",
          kNeverStarts, R"(write the items as { "0": { ... }, "1": { ... } })");
      return;
    }
    const JsonNode& item = Item(next_);
    const bool in_name = item.type == JsonType::kObject;
    const JsonNode& culprit = in_name ? item.Get("name").value : item;
    const std::string found = std::string("is ") + Describe(culprit.type);
    Finding finding{Severity::kError,
                    in_name ? "name-type" : "item-type",
                    culprit.offset,
                    next_,
                    in_name ? "name" : "",
                    found + (in_name ? ", not a text" : ", not an object"),
                    kEndsStartup,
                    in_name ? "write a string" : "write { \"name\": ... }"};
    result_->findings.push_back(std::move(finding));
  }

  void FindUnreadKeys() {
    for (const JsonMember& member : source_.root.members) {
      if (member.key == kSchemaKey) {
        continue;
      }
      if (!IsIndex(member.key)) {
        Add(Severity::kWarning, "unknown-key", member.offset, member.key,
            "is no item's index", "it is never looked at",
            "number the items \"0\", \"1\", \"2\" and so on, without signs, "
            "blanks or leading zeros");
      } else if (IsBehindGap(member.key)) {
        Add(Severity::kWarning, "gap", member.offset, member.key,
            "stands behind a gap: there is no \"" + std::to_string(next_) +
                "\"",
            "it is never looked at",
            "number the items from \"0\" without gaps");
      }
    }
    if (next_ == 0) {
      Add(Severity::kWarning, "no-items", source_.root.offset, "",
          "has no item \"0\"",
          "the launcher starts nothing and waits for SIGTERM",
          R"(begin with { "0": { "name": ..., "program": ... } })");
    }
  }

  bool IsBehindGap(const std::string& key) const {
    const std::string last = std::to_string(next_);
    return key.size() > last.size() ||
           (key.size() == last.size() && key > last);
  }

  void FindOddities() {
    if (source_.end < text_.size()) {
      Add(Severity::kWarning, "trailing-text", source_.end, "",
          "text follows the end of the document", "it is never looked at",
          "remove it, or the bracket too many before it");
    }
    for (const std::size_t offset : source_.raw_controls) {
      Add(Severity::kWarning, "raw-control", offset, "",
          "a string holds a control character that is not escaped",
          "it is kept, but newer versions of the JSON library refuse the whole "
          "file",
          "write \\t, \\n or \\u00.. in its place");
    }
  }

  const JsonNode& Item(int index) const {
    return source_.root.Get(std::to_string(index)).value;
  }

  const std::string& text_;
  const JsonSource source_;
  CheckResult* const result_;
  std::map<std::string, int> indices_;
  int next_ = 0;  // the index that the walk has come to
};

}  // namespace

CheckResult CheckItemsFile(const std::string& path) {
  CheckResult result;
  if (auto text = ReadItemsFile(path, &result.findings, &result.readable)) {
    result.text = *std::move(text);
    DocumentCheck(result.text, &result).Run();
  }
  return result;
}
