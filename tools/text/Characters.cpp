#include "tools/text/Characters.h"

#include <wchar.h>

#include <clocale>
#include <regex>

#include "common/util/StringHelpers.h"
#include "common/util/Utf8.h"

namespace {

// Calls `use` with each character of `text` and its bytes.
template <class Use>
void ForEachCharacter(std::string_view text, const Use& use) {
  while (!text.empty()) {
    const Utf8Character character = DecodeUtf8(text);
    use(character, text.substr(0, character.bytes));
    text.remove_prefix(character.bytes);
  }
}

// `text` with the bytes that a terminal would not show in the printf `format`.
std::string Escaped(std::string_view text, const char* format) {
  std::string result;
  ForEachCharacter(text, [&](const auto& character, std::string_view bytes) {
    const char32_t code = character.code;
    if (character.is_valid && code >= 0x20 && (code < 0x7F || code >= 0xA0)) {
      result += bytes;
      return;
    }
    for (const char byte : bytes) {
      result += string_format(format, static_cast<unsigned char>(byte));
    }
  });
  return result;
}

// The C library takes the widths from the program's locale, which is "C" until
// the program asks for another.
std::size_t Width(const Utf8Character& character) {
  static const bool has_table =
      std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr ||
      std::setlocale(LC_CTYPE, "en_US.UTF-8") != nullptr ||
      std::setlocale(LC_CTYPE, "UTF-8") != nullptr;
  if (character.code < 0x80 || !has_table) {
    return 1;
  }
  const int width = wcwidth(static_cast<wchar_t>(character.code));
  return width < 0 ? 1 : static_cast<std::size_t>(width);
}

}  // namespace

std::string Printable(std::string_view text) {
  return Escaped(text, "\\x%02x");
}

std::string Quoted(std::string_view text) {
  return "\"" + Printable(text) + "\"";
}

std::string ValidUtf8(std::string_view text) {
  std::string result;
  ForEachCharacter(text, [&](const auto& character, std::string_view bytes) {
    result += character.is_valid ? bytes : "\uFFFD";
  });
  return result;
}

std::string ShellQuoted(std::string_view text) {
  constexpr std::string_view kSafe =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
      "%+,-./:=@_";
  std::string word(text);
  if (Printable(word) != word) {
    static const std::regex kSpecial(R"(['\\])");
    const std::string escaped = std::regex_replace(word, kSpecial, R"(\$&)");
    return "$'" + Escaped(escaped, "\\%03o") + "'";
  }
  if (!word.empty() && word.find_first_not_of(kSafe) == std::string::npos) {
    return word;
  }
  static const std::regex kQuote("'");
  return "'" + std::regex_replace(word, kQuote, R"('\'')") + "'";
}

std::string ShellQuoted(const std::vector<std::string>& vector) {
  std::string result;
  for (const std::string& word : vector) {
    result += (result.empty() ? "" : " ") + ShellQuoted(word);
  }
  return result;
}

std::size_t DisplayWidth(std::string_view text) {
  std::size_t width = 0;
  ForEachCharacter(text, [&](const auto& character, std::string_view) {
    width += Width(character);
  });
  return width;
}

std::string Cut(std::string_view text, std::size_t width) {
  if (DisplayWidth(text) <= width) {
    return std::string(text);
  }
  std::string result;
  std::size_t used = 1;  // by the ellipsis
  ForEachCharacter(text, [&](const auto& character, std::string_view bytes) {
    used += Width(character);
    result += used <= width ? bytes : "";
  });
  return result + "\u2026";
}

std::string Fitted(std::string_view text, std::size_t width) {
  std::string result = Cut(text, width);
  return result.append(width - DisplayWidth(result), ' ');
}
