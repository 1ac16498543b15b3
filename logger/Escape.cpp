#include "logger/Escape.h"

#include <algorithm>

#include "common/util/Utf8.h"
#include "logger/Format.h"

namespace {

constexpr unsigned char kDelete = 0x7F;

unsigned char Byte(char c) { return static_cast<unsigned char>(c); }

// True for nearly every message. The loop has no early exit and no branch, so
// the compiler can check many bytes at a time.
bool IsPlainAscii(std::string_view text) {
  unsigned char odd = 0;
  for (const char c : text) {
    const unsigned char byte = Byte(c);
    odd |= static_cast<unsigned char>(byte < ' ') |
           static_cast<unsigned char>(byte >= kDelete) |
           static_cast<unsigned char>(c == kEscape);
  }
  return odd == 0;
}

bool ChangesDirection(char32_t c) {
  return c == 0x061C || c == 0x200E || c == 0x200F ||
         (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

bool IsShown(char32_t c) {
  const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0);
  const bool separator = c == 0x2028 || c == 0x2029;
  return !control && !separator && !ChangesDirection(c) &&
         c != static_cast<char32_t>(kEscape);
}

// The length of the character at the start of `text` if it is written
// unchanged, otherwise 0.
std::size_t ShownCharacter(std::string_view text) {
  const Utf8Character character = DecodeUtf8(text);
  return character.is_valid && IsShown(character.code) ? character.bytes : 0;
}

char* EscapeByte(char c, char* out) {
  *out++ = kEscape;
  if (c == '\n') {
    *out++ = kEscapedLineFeed;
  } else if (c == kEscape) {
    *out++ = kEscape;
  } else {
    *out++ = kEscapedByte;
    *out++ = kHexDigits[Byte(c) >> 4U];
    *out++ = kHexDigits[Byte(c) & 0xFU];
  }
  return out;
}

}  // namespace

bool IsPlain(std::string_view text) {
  if (IsPlainAscii(text)) {
    return true;
  }
  while (!text.empty()) {
    const std::size_t length = ShownCharacter(text);
    if (length == 0) {
      return false;
    }
    text.remove_prefix(length);
  }
  return true;
}

// Escaping the first byte of a character that must not be shown is enough: the
// loop then finds the others alone, which is not UTF-8, and escapes them, too.
char* Escape(std::string_view text, char* out) {
  while (!text.empty()) {
    const std::size_t length = ShownCharacter(text);
    if (length == 0) {
      out = EscapeByte(text[0], out);
      text.remove_prefix(1);
    } else {
      out = std::copy_n(text.data(), length, out);
      text.remove_prefix(length);
    }
  }
  return out;
}
