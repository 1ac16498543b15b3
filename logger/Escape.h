// How a message is written, so that it stays one line and nothing in it can be
// taken for something else.
//
//   \n     a line feed
//   \\     a backslash
//   \xNN   a byte, by two hexadecimal digits, of any other control character,
//          of U+2028 and U+2029, and of what is not UTF-8
//
// Control characters are U+0000 to U+001F and U+007F to U+009F; U+2028 and
// U+2029 are the other characters that readers take for the end of a line. All
// else, other alphabets included, stands as it is. So a log is valid UTF-8
// whatever is logged, and the message can be had back exactly.
//
// Allocates nothing and takes no lock: safe in a forked copy.

#pragma once

#include <cstddef>
#include <string_view>

// The most that one byte of a message becomes.
constexpr std::size_t kEscapedByteBytes = 4;

// Whether `text` is written as it stands.
bool IsPlain(std::string_view text);

// Writes `text` to `out`, which has room for `kEscapedByteBytes` times as many
// bytes. Returns the end of what is written.
//
//   a<line feed>b      gives  a\nb
//   <escape>[31m       gives  \x1b[31m
//   C:\temp            gives  C:\\temp
char* Escape(std::string_view text, char* out);
