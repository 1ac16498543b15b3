#include "tools/text/Characters.h"

#include <wchar.h>

#include <clocale>

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
constexpr std::string_view kEllipsis = "\xE2\x80\xA6";

// The least code point that takes so many bytes: with fewer it is overlong.
constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};

unsigned char Byte(char c) { return static_cast<unsigned char>(c); }

// How many bytes a character has that begins with `first`; 0 if none does.
std::size_t ExpectedBytes(unsigned char first) {
  if (first < 0x80) {
    return 1;
  }
  if (first < 0xC2 || first > 0xF4) {
    return 0;
  }
  return first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

// The system's table of widths goes by the program's locale, which is "C" where
// nobody has asked for another.
bool AskForUtf8Locale() {
  for (const char* const name : {"C.UTF-8", "en_US.UTF-8", "UTF-8"}) {
    if (std::setlocale(LC_CTYPE, name) != nullptr) {
      return true;
    }
  }
  return false;
}

std::size_t Width(const Character& character) {
  static const bool has_table = AskForUtf8Locale();
  if (character.code < 0x80 || !has_table) {
    return 1;
  }
  const int width = wcwidth(static_cast<wchar_t>(character.code));
  return width < 0 ? 1 : static_cast<std::size_t>(width);
}

}  // namespace

Character FirstCharacter(std::string_view text) {
  const Character invalid{Byte(text[0]), 1, false};
  const std::size_t bytes = ExpectedBytes(Byte(text[0]));
  if (bytes == 0 || bytes > text.size()) {
    return invalid;
  }
  char32_t code = Byte(text[0]);
  if (bytes > 1) {
    code &= 0x7FU >> bytes;
  }
  for (const char c : text.substr(1, bytes - 1)) {
    if ((Byte(c) & 0xC0U) != 0x80U) {
      return invalid;
    }
    code = (code << 6U) | (Byte(c) & 0x3FU);
  }
  const bool surrogate = code >= 0xD800 && code < 0xE000;
  if (code < kLeast[bytes] || code > 0x10FFFF || surrogate) {
    return invalid;
  }
  return {code, bytes, true};
}

bool IsPrintable(const Character& character) {
  const char32_t code = character.code;
  return character.is_utf8 && code >= 0x20 && (code < 0x7F || code >= 0xA0);
}

std::string Printable(std::string_view text) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string result;
  while (!text.empty()) {
    const Character character = FirstCharacter(text);
    for (const char c : text.substr(0, character.bytes)) {
      if (IsPrintable(character)) {
        result += c;
      } else {
        result += "\\x";
        result += kDigits[Byte(c) >> 4U];
        result += kDigits[Byte(c) & 0xFU];
      }
    }
    text.remove_prefix(character.bytes);
  }
  return result;
}

std::string ValidUtf8(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const Character character = FirstCharacter(text);
    result +=
        character.is_utf8 ? text.substr(0, character.bytes) : kReplacement;
    text.remove_prefix(character.bytes);
  }
  return result;
}

std::size_t DisplayWidth(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const Character character = FirstCharacter(text);
    width += Width(character);
    text.remove_prefix(character.bytes);
  }
  return width;
}

std::string Cut(std::string_view text, std::size_t width) {
  if (DisplayWidth(text) <= width) {
    return std::string(text);
  }
  std::string result;
  std::size_t used = 1;  // by the ellipsis
  for (;;) {
    const Character character = FirstCharacter(text);
    used += Width(character);
    if (used > width) {
      return result.append(kEllipsis);
    }
    result += text.substr(0, character.bytes);
    text.remove_prefix(character.bytes);
  }
}

std::string Fitted(std::string_view text, std::size_t width) {
  std::string result = Cut(text, width);
  return result.append(width - DisplayWidth(result), ' ');
}
