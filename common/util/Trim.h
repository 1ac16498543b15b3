// Trimming white space from both ends of a string.
//
// `static inline`: every source file that includes this header has its own
// copy. Safe from any thread and in a forked child of a threaded process.

#pragma once

#include <string>
#include <string_view>

// Trims `text` in place and returns it. White space is that of the "C" locale,
// whatever the current one: space, \t, \n, \v, \f and \r. Bytes of 0x80 and
// above are not white space.
//
//   " \t a b\r\n"  becomes  "a b"
static inline std::string& trim(std::string& text) {
  constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
  text.erase(text.find_last_not_of(kWhiteSpace) + 1);
  text.erase(0, text.find_first_not_of(kWhiteSpace));
  return text;
}
