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
  while (std::feof(file) == 0) {
    errno = 0;
    text.append(chunk, 0, std::fread(chunk.data(), 1, chunk.size(), file));
    if (std::ferror(file) != 0) {
      return errno;
    }
  }
  return 0;
}

// The key by which a file names its schema to editors.
constexpr const char* kSchemaKey = "$schema";

class DocumentCheck {
 public:
  explicit DocumentCheck(CheckResult& result)
      : text_(*result.text), keys_(ScanJson(text_)), result_(result) {}

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
    for (const std::size_t offset : keys_.raw_controls) {
      Add("raw-control", {{}, "", offset},
          "contains a string with an unescaped control character");
    }
    if (keys_.comment && root_.getOffsetLimit() > 0) {
      Add("comment", {{}, "", *keys_.comment}, "has a comment");
    }
  }

 private:
  void Add(RuleName rule, Place place, std::string problem) {
    result_.findings.push_back(
        Found(rule, std::move(place), std::move(problem)));
  }

  // The launcher's own walk. An exception here ends the launcher's start-up.
  void Walk(JsonObject document) {
    const auto visit = [this](int index, JsonObject item) {
      next_ = index;
      CheckItem(index, item, Item(index), keys_, result_);
      FindDuplicate(result_.items.back());
      ++next_;
    };
    try {
      WalkItems(document, visit, visit);
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

  const std::string& text_;
  const JsonText keys_;
  CheckResult& result_;
  Json::Value root_;
  std::map<std::string, int> indices_;
  int next_ = 0;  // the index that the walk has reached
};

}  // namespace

CheckResult ReadItemsFile(const std::string& path) {
  const auto nothing = [](bool readable, RuleName rule, std::string problem) {
    return CheckResult{readable, {}, {}, {Found(rule, {}, std::move(problem))}};
  };
  if (IsSpecial(path)) {
    return nothing(false, "not-regular", "is a pipe or a device");
  }
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
      path == kStandardInput ? stdin : std::fopen(path.c_str(), "rb"),
      &std::fclose);
  if (file == nullptr) {
    return nothing(false, "unreadable",
                   std::string("cannot be opened: ") + std::strerror(errno));
  }
  std::string text;
  const int error = ReadAll(file.get(), text);
  if (error == EISDIR) {
    return nothing(false, "directory", "is a directory");
  }
  if (error != 0) {
    return nothing(false, "read-error",
                   std::string("cannot be read: ") + std::strerror(error));
  }
  if (text.empty()) {
    return nothing(true, "empty", "is empty");
  }
  const std::size_t end = text.find('\0');
  if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF") || end < 2) {
    return nothing(true, "utf-16", "is not UTF-8, but UTF-16");
  }
  CheckResult result{true, {}, {}, {}};
  if (end != std::string::npos) {
    result.findings.push_back(
        Found("nul", {{}, "", end}, "contains a NUL byte"));
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
