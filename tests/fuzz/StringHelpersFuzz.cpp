// Checks that the results of the string helpers have their properties. The
// first two lines of the input are a search string and its replacement; the
// rest is the text.

#include <stdexcept>

#include "common/util/StringHelpers.h"
#include "common/util/Trim.h"
#include "tests/fuzz/Fuzz.h"

namespace {

// The joined pieces are the text; a separator at its end leaves no piece.
void CheckSplit(const std::string& text) {
  static const std::regex kSlash("/");
  const std::vector<std::string> pieces = split(text, kSlash);
  Require(!pieces.empty());
  std::string joined;
  for (const std::string& piece : pieces) {
    Require(piece.find('/') == std::string::npos);
    joined += piece + "/";
  }
  if (text.empty() || text.back() != '/') {
    joined.pop_back();
  }
  Require(joined == text);
}

void CheckTrim(const std::string& text) {
  std::string trimmed = text;
  Require(&trim(trimmed) == &trimmed);
  constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
  const std::size_t start = text.find(trimmed);
  Require(start != std::string::npos);
  Require(trimmed.find_first_not_of(kWhiteSpace) ==
          (trimmed.empty() ? std::string::npos : 0));
  Require(trimmed.empty() ||
          kWhiteSpace.find(trimmed.back()) == std::string_view::npos);
  const std::size_t first = text.find_first_not_of(kWhiteSpace);
  const std::size_t last = text.find_last_not_of(kWhiteSpace);
  Require(
      trimmed ==
      (first == std::string::npos ? "" : text.substr(first, last - first + 1)));
}

void CheckReplaceAll(const std::string& text, const std::string& search,
                     const std::string& replacement) {
  // The call would not return.
  if (search.empty() ||
      replacement.find(search, search.size()) != std::string::npos) {
    return;
  }
  std::string replaced = text;
  replace_all(replaced, search, replacement);

  std::string expected = text;
  for (std::size_t p = 0; p + search.size() <= expected.size();) {
    const bool here = expected.compare(p, search.size(), search) == 0;
    if (here) {
      expected = expected.substr(0, p) + replacement +
                 expected.substr(p + search.size());
    }
    p += here ? search.size() : 1;
  }
  Require(replaced == expected);
}

void CheckUtf8(const std::string& text) {
  try {
    const std::wstring wide = s2ws(text);
    Require(wide.size() <= text.size());
    Require(ws2s(wide) == text);
  } catch (const std::range_error&) {
    // The text is not UTF-8.
  }
}

// Every four bytes are one wide character.
void CheckWide(const std::string& text) {
  std::wstring wide;
  for (std::size_t i = 0; i + 3 < text.size(); i += 4) {
    std::uint32_t character = 0;
    for (std::size_t j = 0; j < 4; ++j) {
      character = character << 8 | static_cast<unsigned char>(text[i + j]);
    }
    wide += static_cast<wchar_t>(character);
  }
  try {
    Require(s2ws(ws2s(wide)) == wide);
  } catch (const std::range_error&) {
    // A character has no UTF-8 form.
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  std::string_view rest = Text(data, size);
  const std::string search = RemoveFirstLine(rest);
  const std::string replacement = RemoveFirstLine(rest);
  const std::string text(rest);
  CheckSplit(text);
  CheckTrim(text);
  CheckReplaceAll(text, search, replacement);
  CheckUtf8(text);
  CheckWide(text);
  Require(ends_with(text, search) ==
          (text.size() >= search.size() &&
           text.substr(text.size() - search.size()) == search));
  Require(string_format("%s|", text.c_str()) ==
          std::string(text.c_str()) + "|");
  return 0;
}
