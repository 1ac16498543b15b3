// String helpers. Wide strings hold one code point in each (32-bit) character.
//
// Safe from any thread on distinct strings. All may also throw the exceptions
// of the string library, std::bad_alloc and std::length_error.

#pragma once

#include <regex>
#include <string>
#include <vector>

// The pieces of `text` between the matches of `separator`. Empty pieces are
// kept, except one after the last match. Throws std::regex_error when the
// standard library finds the matching too complex.
//
//   split("/a//b/", "/")  gives  "", "a", "", "b"
//   split("", "/")        gives  ""
std::vector<std::string> split(const std::string& text,
                               const std::regex& separator);
std::vector<std::wstring> split(const std::wstring& text,
                                const std::wregex& separator);

// The printf-style `format` with its arguments, up to the first NUL; empty when
// an argument cannot be formatted (a wide character without a multibyte form).
// Throws std::bad_alloc when the result and its terminator have more bytes than
// an int counts.
std::string string_format(std::string format, ...);

// Replaces `search` in `text` from left to right. After each replacement the
// search continues `search.size()` characters after the start of the
// occurrence, however long `replacement` is. It therefore skips characters that
// follow a shorter replacement, and never returns when `replacement` contains
// `search` at an offset of `search.size()` or more, or when `search` is empty.
// If `text` outgrows the memory, it keeps the replacements made so far.
//
//   aa by b in aaaa    gives  baa
//   a by xa in a       does not return
void replace_all(std::string& text, const std::string& search,
                 const std::string& replacement);
void replace_all(std::wstring& text, const std::wstring& search,
                 const std::wstring& replacement);

// Byte for byte, without regard to the locale; true for an empty `suffix`.
bool ends_with(const std::string& text, const std::string& suffix);

// Decodes all of `text` from UTF-8, zero bytes and a byte-order mark included.
// Throws std::range_error("wstring_convert: from_bytes error") unless each code
// point is at most U+10FFFF, is not a surrogate, and has its shortest form.
std::wstring s2ws(const std::string& text);

// Encodes all of `text` as UTF-8, zero characters included, without adding a
// byte-order mark. Throws std::range_error("wstring_convert: to_bytes error")
// for a surrogate or a value above U+10FFFF.
std::string ws2s(const std::wstring& text);
