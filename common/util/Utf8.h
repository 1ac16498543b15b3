// Decodes UTF-8, one character at a time. Header only, because the logger
// library uses it and must not link the launcher's helpers.

#pragma once

#include <cstddef>
#include <string_view>

struct Utf8Character {
  char32_t code;      // the byte's value when the text is not UTF-8 there
  std::size_t bytes;  // 1 when the text is not UTF-8 there
  bool is_valid;
};

// The character at the start of `text`, which must not be empty. Overlong
// forms, surrogates and code points above U+10FFFF are invalid. Allocates
// nothing; safe from any thread and in a forked child.
//
//   "\xC3\xA9!"  gives  {0xE9, 2, true}
//   "\xC3("      gives  {0xC3, 1, false}
constexpr Utf8Character DecodeUtf8(std::string_view text) {
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const auto byte = [&](std::size_t i) -> char32_t {
    return static_cast<unsigned char>(text[i]);
  };
  const char32_t first = byte(0);
  const Utf8Character invalid{first, 1, false};
  if (first < 0x80) {
    return {first, 1, true};
  }
  if (first < 0xC2 || first > 0xF4) {
    return invalid;
  }
  const std::size_t bytes = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (bytes > text.size()) {
    return invalid;
  }
  char32_t code = first & (0x7FU >> bytes);
  for (std::size_t i = 1; i < bytes; ++i) {
    if ((byte(i) & 0xC0U) != 0x80U) {
      return invalid;
    }
    code = (code << 6U) | (byte(i) & 0x3FU);
  }
  const bool surrogate = code >= 0xD800 && code < 0xE000;
  if (code < kSmallest[bytes] || code > 0x10FFFF || surrogate) {
    return invalid;
  }
  return {code, bytes, true};
}
