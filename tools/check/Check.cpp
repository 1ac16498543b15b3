#include "tools/check/Check.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <utility>

#include "launcher/Items.h"
#include "tools/text/Characters.h"

namespace {

// A pipe or a device: reading it might never end.
bool IsSpecial(const std::string& path) {
  struct stat status {};
  return path != kStandardInput && stat(path.c_str(), &status) == 0 &&
         !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

// Appends the file to `text`. Returns 0 or an errno value.
int ReadAll(std::FILE* file, std::string& text) {
  std::string chunk(65536, '\0');
  std::size_t bytes = chunk.size();
  while (bytes == chunk.size()) {
    bytes = std::fread(chunk.data(), 1, chunk.size(), file);
    text.append(chunk, 0, bytes);
  }
  return std::ferror(file) == 0 ? 0 : errno;
}

// The key by which a file names its schema to editors.
constexpr const char* kSchemaKey = "$schema";

class DocumentCheck {
 public:
  explicit DocumentCheck(CheckResult& result)
      : json_(ReadJson(*result.text)), result_(result) {}

  void Run() {
    if (json_.errors.empty()) {
      Walk();
      FindReplacedKeys();
      FindTrailingText();
    }
    std::ranges::copy(json_.errors, std::back_inserter(result_.findings));
    for (const std::size_t offset : json_.raw_controls) {
      Add("raw-control", {{}, "", offset},
          "contains a string with an unescaped control character");
    }
    if (json_.comment && json_.errors.empty()) {
      Add("comment", {{}, "", *json_.comment}, "has a comment");
    }
  }

 private:
  void Add(RuleName rule, Place place, std::string problem) {
    result_.findings.push_back(
        Found(rule, std::move(place), std::move(problem)));
  }

  // The launcher's own walk. An exception here ends the launcher's start-up.
  void Walk() {
    Json::Value copy = json_.root;  // The walk adds the members that it reads.
    JsonObject document(copy);
    const auto visit = [this](int index, JsonObject item) {
      next_ = index;
      CheckItem(index, item, json_, result_);
      FindDuplicate(result_.items.back());
      ++next_;
    };
    try {
      WalkItems(document, visit, visit);
      FindUnreadKeys();
    } catch (...) {
      FindWalkError();
    }
  }

  const Json::Value& Item(int index) const {
    return json_.root[std::to_string(index)];
  }

  void FindDuplicate(const CheckedItem& item) {
    if (!item.name) {
      return;
    }
    const auto [entry, is_new] = indices_.emplace(*item.name, item.index);
    if (is_new) {
      return;
    }
    const int earlier = std::exchange(entry->second, item.index);
    result_.items[static_cast<std::size_t>(earlier)].runs = false;
    Add("name-duplicate",
        {item.index, "name", OffsetOf(Item(item.index)["name"])},
        Quoted(*item.name) + " is also the name of item " +
            std::to_string(earlier));
  }

  void FindWalkError() {
    const Json::Value& root = json_.root;
    if (!root.isObject() && !root.isNull()) {
      Add("top-level-type", {{}, "", OffsetOf(root)},
          IsNot(root, "an object") + ", at its top level");
    } else if (const Json::Value& item = Item(next_); !item.isObject()) {
      Add("item-type", {next_, "", OffsetOf(item)}, IsNot(item, "an object"));
    } else {
      const Json::Value& name = item["name"];
      Add("name-type", {next_, "name", OffsetOf(name)},
          IsNot(name, "a string"));
    }
  }

  void FindUnreadKeys() {
    bool has_other_items = false;
    for (const JsonKey& key : json_.KeysOf(&json_.root)) {
      const Place place{{}, key.name, key.offset};
      if (const auto index = IndexOf(key.name)) {
        if (*index > static_cast<std::uint64_t>(next_)) {
          Add("gap", place,
              "comes after a gap: there is no " +
                  Quoted(std::to_string(next_)));
          has_other_items = true;
        }
      } else if (const Json::Value& value = json_.root[key.name];
                 value.isObject() || value.isArray()) {
        Add("stray-item", place, "is not the number of an item");
        has_other_items = true;
      } else if (key.name != kSchemaKey) {
        Add("unknown-key", place, "is not the number of an item");
      }
    }
    if (next_ == 0 && !has_other_items) {
      Add("no-items", {{}, "", OffsetOf(json_.root)}, "contains no item \"0\"");
    }
  }

  void FindReplacedKeys() {
    for (const JsonKey& key : json_.ReplacedKeysOf(&json_.root)) {
      Add(IndexOf(key.name) ? RuleName("item-replaced")
                            : RuleName("duplicate-key"),
          {{}, key.name, key.offset}, "occurs more than once");
    }
  }

  void FindTrailingText() {
    const std::string& text = *result_.text;
    if (json_.end < text.size()) {
      const bool has_items = text.find('"', json_.end) != std::string::npos;
      Add(has_items ? RuleName("closed-early") : RuleName("trailing-text"),
          {{}, "", json_.end}, "continues after the end of the document");
    }
  }

  const JsonText json_;
  CheckResult& result_;
  std::map<std::string, int> indices_;  // of the items, by their names
  int next_ = 0;                        // the index that the walk has reached
};

}  // namespace

CheckResult ReadItemsFile(const std::string& path) {
  CheckResult result;
  const auto rejected = [&](RuleName rule, const std::string& problem) {
    result.findings = {Found(rule, {}, problem)};
    return result;
  };
  if (IsSpecial(path)) {
    return rejected("not-regular", "is a pipe or a device");
  }
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
      path == kStandardInput ? stdin : std::fopen(path.c_str(), "rb"),
      &std::fclose);
  if (file == nullptr) {
    return rejected("unreadable",
                    std::string("cannot be opened: ") + std::strerror(errno));
  }
  std::string text;
  const int error = ReadAll(file.get(), text);
  if (error == EISDIR) {
    return rejected("directory", "is a directory");
  }
  if (error != 0) {
    return rejected("read-error",
                    std::string("cannot be read: ") + std::strerror(error));
  }
  result.readable = true;
  if (text.empty()) {
    return rejected("empty", "is empty");
  }
  const std::size_t end = text.find('\0');
  if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF") || end < 2) {
    return rejected("utf-16", "is not UTF-8, but UTF-16");
  }
  if (end != std::string::npos) {
    result.findings = {Found("nul", {{}, "", end}, "contains a NUL byte")};
    text.resize(end);
  }
  result.text = std::move(text);
  return result;
}

CheckResult CheckItems(CheckResult file) {
  if (file.text) {
    DocumentCheck(file).Run();
    CountLines(*file.text, file.findings);
  }
  return file;
}
