#include "logger/Escape.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr unsigned char kDelete = 0x7F;
constexpr std::size_t kMaxCharacterBytes = 4;

unsigned char Byte(char c) { return static_cast<unsigned char>(c); }

// Nearly every message is. Without an early exit and without branches the
// compiler makes it look at many bytes at a time.
bool IsPlainAscii(std::string_view text) {
  unsigned char odd = 0;
  for (const char c : text) {
    const unsigned char byte = Byte(c);
    odd |= static_cast<unsigned char>(byte < ' ') |
           static_cast<unsigned char>(byte >= kDelete) |
           static_cast<unsigned char>(byte == '\\');
  }
  return odd == 0;
}

bool IsContinuation(char c) { return (Byte(c) & 0xC0U) == 0x80U; }

bool IsShown(char32_t c) {
  const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0);
  const bool separator = c == 0x2028 || c == 0x2029;
  return !control && !separator && c != U'\\';
}

// How many bytes a character has that begins with `first`; 0 if none does.
std::size_t CharacterBytes(char first) {
  const unsigned char byte = Byte(first);
  if (byte < 0x80) {
    return 1;
  }
  if (byte < 0xC2 || byte > 0xF4) {
    return 0;
  }
  return byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : kMaxCharacterBytes;
}

// The least code point that takes so many bytes: with fewer it is overlong.
constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};

// The length of the character at the start of `text`, which is not empty, if it
// is valid UTF-8 that is written as it stands; else 0.
std::size_t ShownCharacter(std::string_view text) {
  const std::size_t length = CharacterBytes(text[0]);
  if (length == 0 || length > text.size()) {
    return 0;
  }
  char32_t code = Byte(text[0]);
  if (length > 1) {
    code &= 0x7FU >> length;
  }
  for (const char c : text.substr(1, length - 1)) {
    if (!IsContinuation(c)) {
      return 0;
    }
    code = (code << 6U) | (Byte(c) & 0x3FU);
  }
  const bool surrogate = code >= 0xD800 && code < 0xE000;
  const bool valid = code >= kLeast[length] && code <= 0x10FFFF && !surrogate;
  return valid && IsShown(code) ? length : 0;
}

char* EscapeByte(char c, char* out) {
  constexpr char kDigits[] = "0123456789abcdef";
  *out++ = '\\';
  if (c == '\n') {
    *out++ = 'n';
  } else if (c == '\\') {
    *out++ = '\\';
  } else {
    *out++ = 'x';
    *out++ = kDigits[Byte(c) >> 4U];
    *out++ = kDigits[Byte(c) & 0xFU];
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

// The bytes of a character that is not shown are escaped one by one: after the
// first, the others are no characters by themselves.
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
