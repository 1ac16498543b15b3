#include "tools/check/JsonText.h"

#include <json/json.h>

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

// The library decodes a key, so the result is the launcher's.
std::string Decoded(const std::string& quoted) {
  if (quoted.find('\\') == std::string::npos) {
    return quoted.substr(1, quoted.size() - 2);
  }
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

const std::vector<JsonKey>& JsonText::KeysAt(std::size_t offset) const {
  static const std::vector<JsonKey> kNone;
  const auto found = keys.find(offset);
  return found == keys.end() ? kNone : found->second;
}

std::vector<JsonKey> JsonText::ReplacedKeysAt(std::size_t offset) const {
  std::vector<JsonKey> replaced = KeysAt(offset);
  std::set<std::string> later;
  std::ranges::reverse(replaced);
  std::erase_if(replaced, [&](const JsonKey& key) {
    return later.insert(key.name).second;
  });
  return replaced;
}

JsonText ScanJson(const std::string& text) {
  JsonText result;
  std::vector<std::size_t> open;  // the brackets around
  for (std::size_t end = 0;;) {
    const std::size_t start = NextToken(text, end);
    const std::size_t visible = text.find_first_not_of(kBlanks, end);
    if (!result.comment && visible < start) {
      result.comment = visible;
    }
    if (start == text.size()) {
      return result;
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
        result.raw_controls.push_back(start);
      }
      const bool is_key = text[NextToken(text, end)] == ':';
      if (is_key && !open.empty()) {
        result.keys[open.back()].push_back({Decoded(string), start});
      }
    }
  }
}

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

// Uses the launcher's own reader, since others accept more. The library's own
// formatting of the errors reads beyond the end of some texts.
Findings FindSyntaxErrors(const std::string& text) {
  Findings findings;
  std::size_t start = 0;
  if (text.starts_with(kByteOrderMark)) {
    findings.push_back(Found("bom", {{}, "", 0}, "has a byte order mark"));
    start = kByteOrderMark.size();
  }
  Json::Reader reader;
  Json::Value root;
  try {
    reader.parse(text.data() + start, text.data() + text.size(), root,
                 /*collectComments=*/false);
  } catch (const Json::Exception&) {
    findings.push_back(
        Found("not-json", {{}, "", start}, "is nested too deeply"));
    return findings;
  }
  for (const auto& error : reader.getStructuredErrors()) {
    const auto offset = start + static_cast<std::size_t>(error.offset_start);
    findings.push_back(Named(text, offset, error.message));
  }
  return findings;
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
