#include "tools/text/ShellQuote.h"

#include <algorithm>

#include "tools/text/Characters.h"

namespace {

bool NeedsNoQuotes(char c) {
  constexpr std::string_view kSafe =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
      "%+,-./:=@_";
  return kSafe.find(c) != std::string_view::npos;
}

std::string SingleQuoted(std::string_view text) {
  std::string result = "'";
  for (const char c : text) {
    result += c == '\'' ? "'\\''" : std::string(1, c);
  }
  return result + "'";
}

std::string Octal(char c) {
  const auto byte = static_cast<unsigned char>(c);
  std::string digits = "\\";
  for (const unsigned shift : {6U, 3U, 0U}) {
    digits += static_cast<char>('0' + ((byte >> shift) & 7U));
  }
  return digits;
}

std::string DollarQuoted(std::string_view text) {
  std::string result = "$'";
  while (!text.empty()) {
    const Utf8Character character = DecodeUtf8(text);
    for (const char c : text.substr(0, character.bytes)) {
      if (!IsPrintable(character)) {
        result += Octal(c);
      } else {
        result += c == '\'' || c == '\\' ? "\\" : "";
        result += c;
      }
    }
    text.remove_prefix(character.bytes);
  }
  return result + "'";
}

bool AllPrintable(std::string_view text) { return Printable(text) == text; }

}  // namespace

std::string ShellQuoted(std::string_view text) {
  if (!AllPrintable(text)) {
    return DollarQuoted(text);
  }
  const bool bare = !text.empty() && std::ranges::all_of(text, NeedsNoQuotes);
  return bare ? std::string(text) : SingleQuoted(text);
}

std::string ShellQuoted(const std::vector<std::string>& vector) {
  std::string result;
  for (const std::string& word : vector) {
    result += result.empty() ? "" : " ";
    result += ShellQuoted(word);
  }
  return result;
}
