// Escapes a message, so that it stays on one line and no part of it can be
// mistaken for something else. Format.h lists the escapes. They replace
//
//   - control characters: U+0000 to U+001F and U+007F to U+009F
//   - the other characters that readers take for the end of a line: U+2028 and
//     U+2029
//   - marks that change the reading direction, which can make a text look like
//     another: U+061C, U+200E, U+200F, U+202A to U+202E and U+2066 to U+2069
//   - the backslash
//   - bytes that are not UTF-8
//
// Everything else, other alphabets included, is written unchanged. So every
// whole line is valid UTF-8, and a reader can restore the message exactly.
//
// Allocates nothing and takes no lock: safe in a forked child.

#pragma once

#include <cstddef>
#include <string_view>

// One byte of a message becomes at most this many.
constexpr std::size_t kEscapedByteBytes = 4;

// Whether `text` is written unchanged.
bool IsPlain(std::string_view text);

// Writes `text` to `out`, which must have room for `kEscapedByteBytes` times as
// many bytes. Returns the end of the output.
//
//   a<line feed>b      gives  a\nb
//   <escape>[31m       gives  \x1b[31m
//   C:\temp            gives  C:\\temp
char* Escape(std::string_view text, char* out);
