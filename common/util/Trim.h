// Trimming of white space at both ends of a string.
//
// `static inline`, so that every source file that includes this header has a
// copy of its own, all of them identical. Reentrant, no locale, safe in a
// forked copy of a threaded process.

#pragma once

#include <string>
#include <string_view>

// Removes white space from the end of `text`, then from its start, in place,
// and returns `text`. White space is what the "C" locale says: space, \t, \n,
// \v, \f and \r. A byte of 0x80 or above is never white space, whatever the
// current locale, and ends the trim on its side.
//
//   " \t a b\r\n"   becomes  "a b"
//   "   "           becomes  ""
//   "\xA0 a"        stays    "\xA0 a"
static inline std::string& trim(std::string& text) {
  constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
  text.erase(text.find_last_not_of(kWhiteSpace) + 1);
  text.erase(0, text.find_first_not_of(kWhiteSpace));
  return text;
}
