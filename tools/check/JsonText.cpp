#include "tools/check/JsonText.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <numeric>
#include <set>
#include <utility>

#include "common/util/Utf8.h"

namespace {

constexpr const char* kBlanks = " \t\r\n";

// The name that the launcher reads for the key with these quotation marks.
std::string Decoded(const std::string& quoted) {
  if (quoted.find('\\') == std::string::npos) {
    return quoted.substr(1, quoted.size() - 2);
  }
  Json::Value key;
  Json::Reader().parse(quoted, key);
  return key.asString();
}

// The first byte of `text` at or after `offset` that is neither white space nor
// in a comment; the text's size if there is none.
std::size_t NextToken(const std::string& text, std::size_t offset) {
  for (;;) {
    const std::size_t at =
        std::min(text.find_first_not_of(kBlanks, offset), text.size());
    const std::string_view mark = text.compare(at, 2, "//") == 0   ? "\n"
                                  : text.compare(at, 2, "/*") == 0 ? "*/"
                                                                   : "";
    if (mark.empty()) {
      return at;
    }
    offset = text.find(mark, at + 2);
    offset = offset == std::string::npos ? offset : offset + mark.size();
  }
}

// The first byte after the string that begins at `start`.
std::size_t EndOfString(const std::string& text, std::size_t start) {
  std::size_t at = start + 1;
  while (at < text.size() && text[at] != '"') {
    at += text[at] == '\\' ? 2 : 1;
  }
  return std::min(at + 1, text.size());
}

// An error, described by the rejected text or else by the parser's message.
Finding Named(std::string_view text, std::size_t offset,
              const std::string& message) {
  constexpr std::u32string_view kTypographicQuotes =
      U"\u2018\u2019\u201C\u201D";
  const std::size_t before = text.substr(0, offset).find_last_not_of(kBlanks);
  const bool follows_comma =
      before != std::string_view::npos && text[before] == ',';
  const bool wants_key = message.find("member name") != std::string::npos;
  const std::string_view rest = text.substr(std::min(offset, text.size()));
  const char32_t next = rest.empty() ? 0 : DecodeUtf8(rest).code;
  const bool begins_word =
      next < 0x80 && (std::isalpha(static_cast<int>(next)) != 0 || next == '_');
  const struct {
    bool applies;
    RuleName rule;
    std::string problem;
  } cases[] = {
      {rest.empty(), "not-json",
       "ends before all its brackets and quotes are closed"},
      {next == '\'', "quotes", "uses single quotes"},
      {kTypographicQuotes.find(next) != std::string_view::npos, "quotes",
       "uses typographic quotes"},
      {wants_key && begins_word, "quotes", "has a key without quotes"},
      {follows_comma && (next == '}' || next == ']'), "trailing-comma",
       "has a comma after the last member"},
      {next == '#' || rest.starts_with("//") || rest.starts_with("/*"),
       "comment-misplaced", "has a comment, which JSON does not have"},
      {true, "not-json", "is not JSON: " + message},
  };
  const auto& found = *std::ranges::find_if(
      cases, [](const auto& each) { return each.applies; });
  return Found(found.rule, {{}, "", offset}, found.problem);
}

// Uses the launcher's own reader, since others accept more. The library's own
// formatting of the errors reads beyond the end of some texts.
void Parse(const std::string& text, JsonText& json) {
  std::size_t start = 0;
  if (text.starts_with(kByteOrderMark)) {
    json.errors.push_back(Found("bom", {{}, "", 0}, "has a byte order mark"));
    start = kByteOrderMark.size();
  }
  Json::Reader reader;
  try {
    reader.parse(text.data() + start, text.data() + text.size(), json.root,
                 /*collectComments=*/false);
  } catch (const Json::Exception&) {
    json.errors.push_back(
        Found("not-json", {{}, "", start}, "is nested too deeply"));
  }
  for (const auto& error : reader.getStructuredErrors()) {
    const auto offset = start + static_cast<std::size_t>(error.offset_start);
    json.errors.push_back(Named(text, offset, error.message));
  }
  json.end =
      NextToken(text, static_cast<std::size_t>(json.root.getOffsetLimit()));
}

// Finds the keys, the first comment and the raw control characters. Accepts
// the errors that the library overlooks.
void Scan(const std::string& text, JsonText& json) {
  std::vector<std::size_t> open;  // the brackets around
  for (std::size_t end = 0; end < text.size();) {
    const std::size_t start = NextToken(text, end);
    const std::size_t visible = text.find_first_not_of(kBlanks, end);
    if (!json.comment && visible < start) {
      json.comment = visible;
    }
    end = start + 1;
    const char token = text[start];
    if (token == '{' || token == '[') {
      open.push_back(start);
    } else if ((token == '}' || token == ']') && !open.empty()) {
      open.pop_back();
    } else if (token == '"') {
      end = EndOfString(text, start);
      const std::string string = text.substr(start, end - start);
      if (std::ranges::any_of(string,
                              [](unsigned char c) { return c < ' '; })) {
        json.raw_controls.push_back(start);
      }
      if (!open.empty() && text[NextToken(text, end)] == ':') {
        json.keys[open.back()].push_back({Decoded(string), start});
      }
    }
  }
}

constexpr std::array kKeys{"name", "program", "argc", "args"};

using OtherName = std::pair<std::string_view, const char*>;

// Names that other supervisors and programmers use for them.
constexpr OtherName kOtherNames[] = {
    {"id", "name"},      {"label", "name"},        {"cmd", "program"},
    {"exec", "program"}, {"path", "program"},      {"command", "program"},
    {"arg", "args"},     {"argv", "args"},         {"arguments", "args"},
    {"params", "args"},  {"executable", "program"}};

// The number of changes that turn `a` into `b`.
std::size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({row[j + 1] + 1, row[j] + 1, replaced});
    }
  }
  return row.back();
}

}  // namespace

std::vector<JsonKey> JsonText::KeysOf(const Json::Value* object) const {
  const auto found =
      object == nullptr ? keys.end() : keys.find(OffsetOf(*object));
  return found == keys.end() ? std::vector<JsonKey>() : found->second;
}

std::vector<JsonKey> JsonText::ReplacedKeysOf(const Json::Value* object) const {
  std::vector<JsonKey> replaced = KeysOf(object);
  std::set<std::string> later;
  std::ranges::reverse(replaced);
  std::erase_if(replaced, [&](const JsonKey& key) {
    return later.insert(key.name).second;
  });
  return replaced;
}

JsonText ReadJson(const std::string& text) {
  JsonText json;
  Parse(text, json);
  Scan(text, json);
  return json;
}

std::size_t OffsetOf(const Json::Value& value) {
  return static_cast<std::size_t>(value.getOffsetStart());
}

std::string IsNot(const Json::Value& value, const std::string& type) {
  // In the order of Json::ValueType.
  constexpr const char* kTypes[] = {"null",     "a number", "a number",
                                    "a number", "a string", "a boolean",
                                    "an array", "an object"};
  return std::string("is ") + kTypes[value.type()] + ", not " + type;
}

std::string KeyMeantBy(const std::string& key) {
  constexpr std::size_t kSlips = 2;
  std::string lower = key;
  std::ranges::transform(lower, lower.begin(), [](unsigned char c) {
    return static_cast<char>(std::tolower(c));
  });
  const auto* const other =
      std::ranges::find(kOtherNames, lower, &OtherName::first);
  if (other != std::end(kOtherNames)) {
    return other->second;
  }
  const auto distance = [&](const char* known) {
    return EditDistance(lower, known);
  };
  const char* const nearest = std::ranges::min(kKeys, {}, distance);
  return distance(nearest) <= kSlips ? nearest : "";
}

std::optional<std::uint64_t> IndexOf(const std::string& key) {
  std::uint64_t index = 0;
  std::from_chars(key.data(), key.data() + key.size(), index);
  return std::to_string(index) == key ? std::optional(index) : std::nullopt;
}
