// Ways to show text of unknown origin.
//
// Names, paths and keys may contain any bytes. A terminal must not act on the
// text that it shows, JSON must be UTF-8, and a shell must read back the same.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// `text` with "\xNN" in place of each byte that is not UTF-8 or belongs to a
// control character, U+0000 to U+001F or U+007F to U+009F.
//
//   a<line feed>b  gives  a\x0ab
std::string Printable(std::string_view text);

// The same in double quotes.
std::string Quoted(std::string_view text);

// `text` with U+FFFD in place of each byte that is not UTF-8.
std::string ValidUtf8(std::string_view text);

// A printable word that a shell reads as `text`: bare if nothing needs quoting,
// else in single quotes, or in the form $'...' of bash, zsh and ksh if
// `Printable` would change it.
//
//   a b              gives  'a b'
//   it's             gives  'it'\''s'
//   a<line feed>b    gives  $'a\012b'
//   (nothing)        gives  ''
std::string ShellQuoted(std::string_view text);

// The words of `vector`, with one blank between them.
std::string ShellQuoted(const std::vector<std::string>& vector);

// The width of printable `text` in columns of a terminal: two for a
// wide character, none for a combining one.
std::size_t DisplayWidth(std::string_view text);

// `text`, cut to fit `width` columns if necessary, with "…" in the last one.
std::string Cut(std::string_view text, std::size_t width);

// The same, padded with blanks to `width` columns.
std::string Fitted(std::string_view text, std::size_t width);
