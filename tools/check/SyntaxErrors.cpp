#include "tools/check/SyntaxErrors.h"

#include <json/json.h>

#include <algorithm>
#include <cctype>
#include <string_view>

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kTypographicQuotes[] = {
    "\xE2\x80\x98", "\xE2\x80\x99", "\xE2\x80\x9C", "\xE2\x80\x9D"};

bool FollowsComma(std::string_view text, std::size_t offset) {
  const std::size_t before = text.substr(0, offset).find_last_not_of(" \t\r\n");
  return before != std::string_view::npos && text[before] == ',';
}

// An error by the text that the parser refuses, or else by its own message.
Finding Named(std::string_view text, std::size_t offset,
              const std::string& message) {
  const Place place{{}, "", offset};
  const std::string_view rest = text.substr(std::min(offset, text.size()));
  const char next = rest.empty() ? '\0' : rest[0];
  if (rest.empty()) {
    return Found("not-json", place,
                 "ends before all its brackets and quotes are closed");
  }
  if (next == '\'') {
    return Found("quotes", place, "uses single quotes");
  }
  if (std::ranges::any_of(kTypographicQuotes, [&](std::string_view quote) {
        return rest.starts_with(quote);
      })) {
    return Found("quotes", place, "uses typographic quotes");
  }
  if (message.find("member name") != std::string::npos &&
      (std::isalpha(static_cast<unsigned char>(next)) != 0 || next == '_')) {
    return Found("quotes", place, "has a key without quotes");
  }
  if ((next == '}' || next == ']') && FollowsComma(text, offset)) {
    return Found("trailing-comma", place, "has a comma after the last member");
  }
  if (next == '#' || rest.starts_with("//") || rest.starts_with("/*")) {
    return Found("comment-misplaced", place,
                 "has a comment, which JSON does not have");
  }
  return Found("not-json", place, "is not JSON: " + message);
}

}  // namespace

// The launcher's own reader, since others accept more. Its ready-made text
// about all errors reads beyond the end of some texts.
Findings FindSyntaxErrors(const std::string& text) {
  constexpr bool kCollectComments = false;
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
                 kCollectComments);
  } catch (const Json::Exception&) {
    findings.push_back(
        Found("not-json", {{}, "", start}, "is nested too deeply"));
    return findings;
  }
  for (const auto& error : reader.getStructuredErrors()) {
    findings.push_back(
        Named(text, start + static_cast<std::size_t>(error.offset_start),
              error.message));
  }
  return findings;
}
