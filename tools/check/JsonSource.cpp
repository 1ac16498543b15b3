#include "tools/check/JsonSource.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "common/json/JsonObject.h"

namespace {

// The library decodes the key, so that both understand it alike.
std::string DecodedKey(const std::string& quoted) {
  try {
    const std::string object = "{" + quoted + ":0}";
    return JsonObject(object.data(), static_cast<unsigned int>(object.size()))
        .GetKeys()
        .at(0);
  } catch (...) {
    return quoted;
  }
}

class Scanner {
 public:
  explicit Scanner(const std::string& text) : text_(text) {}

  JsonSource Scan() {
    SkipBlanks();
    source_.root = Value();
    SkipBlanks();
    source_.end = at_;
    return std::move(source_);
  }

 private:
  bool AtEnd() const { return at_ >= text_.size(); }
  char Next() const { return AtEnd() ? '\0' : text_[at_]; }
  bool IsNext(std::string_view start) const {
    return text_.compare(at_, start.size(), start) == 0;
  }

  // Moves behind `mark`, or to the end where there is none.
  void SkipPast(std::string_view mark) {
    const std::size_t found = text_.find(mark, at_);
    at_ = found == std::string::npos ? text_.size() : found + mark.size();
  }

  void SkipBlanks() {
    for (;;) {
      at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size());
      if (IsNext("//")) {
        SkipPast("\n");
      } else if (IsNext("/*")) {
        SkipPast("*/");
      } else {
        return;
      }
    }
  }

  JsonNode Value() {
    JsonNode node;
    node.offset = at_;
    switch (Next()) {
      case '{':
        node.type = JsonType::kObject;
        node.members = Members();
        break;
      case '[':
        node.type = JsonType::kArray;
        SkipElements();
        break;
      case '"':
        node.type = JsonType::kString;
        SkipString();
        break;
      default:
        node.type = Literal();
    }
    node.bytes = at_ - node.offset;
    return node;
  }

  // Anything that is neither a key nor the value of one is passed over: commas,
  // and what the library lets stand behind a comment.
  std::vector<JsonMember> Members() {
    std::vector<JsonMember> members;
    JsonMember member;
    bool has_key = false;
    for (++at_; SkipBlanks(), !AtEnd() && Next() != '}';) {
      if (Next() == ':' && has_key) {
        ++at_;
        SkipBlanks();
        member.value = Value();
        members.push_back(std::exchange(member, {}));
        has_key = false;
      } else if (Next() == '"') {
        member.offset = at_;
        SkipString();
        member.key =
            DecodedKey(text_.substr(member.offset, at_ - member.offset));
        has_key = true;
      } else {
        ++at_;
      }
    }
    at_ = std::min(at_ + 1, text_.size());
    return members;
  }

  void SkipElements() {
    for (++at_; SkipBlanks(), !AtEnd() && Next() != ']';) {
      if (Next() == ',') {
        ++at_;
      } else {
        Value();
      }
    }
    at_ = std::min(at_ + 1, text_.size());
  }

  void SkipString() {
    const std::size_t start = at_;
    bool raw_control = false;
    for (++at_; !AtEnd() && Next() != '"'; ++at_) {
      raw_control |= static_cast<unsigned char>(Next()) < ' ';
      at_ += Next() == '\\' ? 1 : 0;
    }
    at_ = std::min(at_ + 1, text_.size());
    if (raw_control) {
      source_.raw_controls.push_back(start);
    }
  }

  JsonType Literal() {
    const char first = Next();
    const std::size_t end = text_.find_first_of(" \t\r\n,:]}[{\"/", at_ + 1);
    at_ = std::min(end, text_.size());
    if (first == 'n') {
      return JsonType::kNull;
    }
    return first == 't' || first == 'f' ? JsonType::kBoolean
                                        : JsonType::kNumber;
  }

  const std::string& text_;
  std::size_t at_ = 0;
  JsonSource source_;
};

}  // namespace

const char* Describe(JsonType type) {
  switch (type) {
    case JsonType::kObject:
      return "an object";
    case JsonType::kArray:
      return "an array";
    case JsonType::kString:
      return "a string";
    case JsonType::kNumber:
      return "a number";
    case JsonType::kBoolean:
      return "a boolean";
    case JsonType::kNull:
      break;
  }
  return "null";
}

const JsonMember* JsonNode::Find(const std::string& key) const {
  const auto found =
      std::find_if(members.rbegin(), members.rend(),
                   [&](const JsonMember& member) { return member.key == key; });
  return found == members.rend() ? nullptr : &*found;
}

const JsonMember& JsonNode::Get(const std::string& key) const {
  static const JsonMember kNowhere{};
  const JsonMember* const member = Find(key);
  return member == nullptr ? kNowhere : *member;
}

JsonSource LocateJson(const std::string& text) { return Scanner(text).Scan(); }

Place PlaceOf(const std::string& text, std::size_t offset) {
  const std::string_view before(text.data(), std::min(offset, text.size()));
  const std::size_t line_start = before.rfind('\n') + 1;
  const auto is_character = [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
  };
  const auto count = [](auto number) {
    return static_cast<std::size_t>(number) + 1;
  };
  return {
      count(std::ranges::count(before, '\n')),
      count(std::ranges::count_if(before.substr(line_start), is_character))};
}
