// Text of unknown origin, character by character, and ways to show it.
//
// Names, paths and keys may hold any bytes. What is shown on a terminal must
// not act on it, and what is written as JSON must be UTF-8.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

struct Character {
  char32_t code;      // the byte's value when it is not UTF-8
  std::size_t bytes;  // 1 when it is not UTF-8
  bool is_utf8;
};

// The character at the start of `text`, which is not empty.
Character FirstCharacter(std::string_view text);

// Whether a terminal shows the character instead of acting on it: not for
// U+0000 to U+001F, U+007F to U+009F, and what is not UTF-8.
bool IsPrintable(const Character& character);

// `text` with "\xNN" in place of each byte that is not printable.
//
//   a<line feed>b  gives  a\x0ab
std::string Printable(std::string_view text);

// `text` with U+FFFD in place of each byte that is not UTF-8.
std::string ValidUtf8(std::string_view text);

// The columns that printable `text` takes on a terminal: two for a wide
// character, none for a combining one.
std::size_t DisplayWidth(std::string_view text);

// `text`, cut where it is wider than `width` columns, with the last one showing
// "…" then.
std::string Cut(std::string_view text, std::size_t width);

// The same, filled up with blanks to `width` columns.
std::string Fitted(std::string_view text, std::size_t width);
