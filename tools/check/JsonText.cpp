#include "tools/check/JsonText.h"

#include <json/json.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

constexpr const char* kBlanks = " \t\r\n";

// The library decodes a key, so that both understand it alike.
std::string Decoded(const std::string& quoted) {
  Json::Value key;
  const bool is_string = Json::Reader().parse(quoted, key) && key.isString();
  return is_string ? key.asString() : quoted;
}

// The first byte after the string that begins at `start`.
std::size_t EndOfString(const std::string& text, std::size_t start) {
  std::size_t at = start + 1;
  while (at < text.size() && text[at] != '"') {
    at += text[at] == '\\' ? 2 : 1;
  }
  return std::min(at + 1, text.size());
}

class Scanner {
 public:
  explicit Scanner(const std::string& text) : text_(text) {}

  JsonText Scan() {
    for (;;) {
      const std::size_t at = NextToken(text_, at_);
      if (!result_.comment && text_.find_first_not_of(kBlanks, at_) < at) {
        result_.comment = text_.find_first_not_of(kBlanks, at_);
      }
      if (at == text_.size()) {
        return std::move(result_);
      }
      at_ = at;
      Token();
    }
  }

 private:
  // A string is a key when a colon follows it.
  void Token() {
    const std::size_t start = at_++;
    const auto string = std::exchange(string_, std::nullopt);
    switch (text_[start]) {
      case '{':
      case '[':
        open_.push_back(start);
        break;
      case '}':
      case ']':
        if (!open_.empty()) {
          open_.pop_back();
        }
        break;
      case '"':
        at_ = EndOfString(text_, start);
        string_ = start;
        FindControl(start);
        break;
      case ':':
        if (string && !open_.empty()) {
          const std::string quoted =
              text_.substr(*string, EndOfString(text_, *string) - *string);
          result_.keys[open_.back()].push_back({Decoded(quoted), *string});
        }
        break;
      default:
        break;
    }
  }

  void FindControl(std::size_t start) {
    const std::string_view string(text_.data() + start, at_ - start);
    if (std::ranges::any_of(string, [](char c) {
          return static_cast<unsigned char>(c) < ' ';
        })) {
      result_.raw_controls.push_back(start);
    }
  }

  const std::string& text_;
  std::size_t at_ = 0;
  std::optional<std::size_t> string_;  // the token before, if it was one
  std::vector<std::size_t> open_;      // the brackets around
  JsonText result_;
};

}  // namespace

const std::vector<JsonKey>& JsonText::KeysAt(std::size_t offset) const {
  static const std::vector<JsonKey> kNone;
  const auto found = keys.find(offset);
  return found == keys.end() ? kNone : found->second;
}

JsonText ScanJson(const std::string& text) { return Scanner(text).Scan(); }

std::size_t NextToken(const std::string& text, std::size_t offset) {
  for (;;) {
    const std::size_t at = text.find_first_not_of(kBlanks, offset);
    if (at == std::string::npos) {
      return text.size();
    }
    const bool is_line = text.compare(at, 2, "//") == 0;
    if (!is_line && text.compare(at, 2, "/*") != 0) {
      return at;
    }
    const std::string_view mark = is_line ? "\n" : "*/";
    const std::size_t end = text.find(mark, at + 2);
    if (end == std::string::npos) {
      return text.size();
    }
    offset = end + mark.size();
  }
}
