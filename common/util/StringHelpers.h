// String helpers: splitting, formatting, replacing, a suffix test and the
// conversion between UTF-8 and wide strings.
//
// All functions are reentrant: they share no state and may be called from any
// thread at once, on distinct strings. Beside what is said below they throw
// what the string library throws: std::bad_alloc, and std::length_error for a
// length beyond all strings. A wide string holds one code point in each
// (32-bit) character.

#pragma once

#include <regex>
#include <string>
#include <vector>

// Returns the stretches of `text` between the matches of `separator`. Empty
// stretches are kept, apart from one behind the last match. Throws
// std::regex_error when the standard library finds the matching too complex.
//
//   split("a/b/", "/")  gives  "a", "b"
//   split("/a", "/")    gives  "", "a"
//   split("a//b", "/")  gives  "a", "", "b"
//   split("", "/")      gives  ""
std::vector<std::string> split(const std::string& text,
                               const std::regex& separator);
std::vector<std::wstring> split(const std::wstring& text,
                                const std::wregex& separator);

// Returns the printf-style `format`, filled with the arguments that follow it,
// up to its first NUL. An argument that cannot be formatted (a wide character
// without a multibyte form, say) gives the empty string. Throws std::bad_alloc
// when the result, its terminator included, has more bytes than an int counts.
//
//   string_format("%d-%s", 7, "x")  gives  "7-x"
std::string string_format(std::string format, ...);

// Replaces occurrences of `search` in `text`, from left to right, in place.
// After each, the search goes on at the occurrence's position plus
// `search.size()`, whatever the size of `replacement`. So characters that move
// up behind a shorter replacement are passed over, and the call does not return
// when `replacement` holds `search` at an offset of `search.size()` or more,
// nor when `search` is empty. What it throws when `text` outgrows the memory
// leaves the replacements so far in `text`.
//
//   aa by b in aaaa    gives  baa
//   x by yy in axbx    gives  ayybyy
//   a by xa in a       does not return
//   "" by anything     does not return
void replace_all(std::string& text, const std::string& search,
                 const std::string& replacement);
void replace_all(std::wstring& text, const std::wstring& search,
                 const std::wstring& replacement);

// Whether `text` ends with `suffix`, byte for byte.
//
//   ends_with("abc", "")    gives  true
//   ends_with("bc", "abc")  gives  false
//   ends_with("abc", "BC")  gives  false
bool ends_with(const std::string& text, const std::string& suffix);

// Decodes the whole of `text`, zero bytes included, from UTF-8. A byte-order
// mark is a character like any other. Throws std::range_error("wstring_convert:
// from_bytes error") on anything but the shortest form of a code point up to
// U+10FFFF outside the surrogates.
//
//   s2ws("\xC3\xA9")  gives   L"\u00E9"
//   s2ws("\xFF")      throws  std::range_error
std::wstring s2ws(const std::string& text);

// Encodes the whole of `text`, zero characters included, as UTF-8, without a
// byte-order mark. Throws std::range_error("wstring_convert: to_bytes error")
// on a surrogate and on a value above U+10FFFF.
//
//   ws2s(L"\U0001F600")  gives  "\xF0\x9F\x98\x80"
std::string ws2s(const std::wstring& text);
