// Ways to show text of unknown origin.
//
// Names, paths and keys may contain any bytes. A terminal must not act on the
// text that it shows, and JSON must be UTF-8.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "common/util/Utf8.h"

// Whether a terminal shows the character instead of acting on it: false for
// U+0000 to U+001F, U+007F to U+009F, and bytes that are not UTF-8.
bool IsPrintable(const Utf8Character& character);

// `text` with "\xNN" in place of each byte that is not printable.
//
//   a<line feed>b  gives  a\x0ab
std::string Printable(std::string_view text);

// The same in double quotes.
std::string Quoted(std::string_view text);

// `text` with U+FFFD in place of each byte that is not UTF-8.
std::string ValidUtf8(std::string_view text);

// The width of printable `text` in columns of a terminal: two for a
// wide character, none for a combining one.
std::size_t DisplayWidth(std::string_view text);

// `text`, cut to fit `width` columns if necessary, with "…" in the last one.
std::string Cut(std::string_view text, std::size_t width);

// The same, padded with blanks to `width` columns.
std::string Fitted(std::string_view text, std::size_t width);
