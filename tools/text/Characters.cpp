#include "tools/text/Characters.h"

#include <wchar.h>

#include <clocale>

#include "common/util/StringHelpers.h"

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
constexpr std::string_view kEllipsis = "\xE2\x80\xA6";

// The C library takes the widths from the program's locale, which is "C" until
// the program asks for another.
bool AskForUtf8Locale() {
  for (const char* const name : {"C.UTF-8", "en_US.UTF-8", "UTF-8"}) {
    if (std::setlocale(LC_CTYPE, name) != nullptr) {
      return true;
    }
  }
  return false;
}

std::size_t Width(const Utf8Character& character) {
  static const bool has_table = AskForUtf8Locale();
  if (character.code < 0x80 || !has_table) {
    return 1;
  }
  const int width = wcwidth(static_cast<wchar_t>(character.code));
  return width < 0 ? 1 : static_cast<std::size_t>(width);
}

}  // namespace

bool IsPrintable(const Utf8Character& character) {
  const char32_t code = character.code;
  return character.is_valid && code >= 0x20 && (code < 0x7F || code >= 0xA0);
}

std::string Printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const Utf8Character character = DecodeUtf8(text);
    for (const char c : text.substr(0, character.bytes)) {
      if (IsPrintable(character)) {
        result += c;
      } else {
        result += string_format("\\x%02x", static_cast<unsigned char>(c));
      }
    }
    text.remove_prefix(character.bytes);
  }
  return result;
}

std::string Quoted(std::string_view text) {
  return "\"" + Printable(text) + "\"";
}

std::string ValidUtf8(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const Utf8Character character = DecodeUtf8(text);
    result +=
        character.is_valid ? text.substr(0, character.bytes) : kReplacement;
    text.remove_prefix(character.bytes);
  }
  return result;
}

std::size_t DisplayWidth(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const Utf8Character character = DecodeUtf8(text);
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
    const Utf8Character character = DecodeUtf8(text);
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
