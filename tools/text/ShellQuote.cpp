#include "tools/text/ShellQuote.h"

#include "common/util/StringHelpers.h"
#include "tools/text/Characters.h"

namespace {

std::string SingleQuoted(std::string_view text) {
  std::string result = "'";
  for (const char c : text) {
    result += c == '\'' ? "'\\''" : std::string(1, c);
  }
  return result + "'";
}

std::string DollarQuoted(std::string_view text) {
  std::string result = "$'";
  while (!text.empty()) {
    const Utf8Character character = DecodeUtf8(text);
    for (const char c : text.substr(0, character.bytes)) {
      if (IsPrintable(character)) {
        result += c == '\'' || c == '\\' ? "\\" : "";
        result += c;
      } else {
        result += string_format("\\%03o", static_cast<unsigned char>(c));
      }
    }
    text.remove_prefix(character.bytes);
  }
  return result + "'";
}

}  // namespace

std::string ShellQuoted(std::string_view text) {
  constexpr std::string_view kSafe =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
      "%+,-./:=@_";
  if (Printable(text) != text) {
    return DollarQuoted(text);
  }
  const bool is_bare =
      !text.empty() && text.find_first_not_of(kSafe) == std::string_view::npos;
  return is_bare ? std::string(text) : SingleQuoted(text);
}

std::string ShellQuoted(const std::vector<std::string>& vector) {
  std::string result;
  for (const std::string& word : vector) {
    result += result.empty() ? "" : " ";
    result += ShellQuoted(word);
  }
  return result;
}
