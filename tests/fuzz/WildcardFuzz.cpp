// Checks the wildcard matcher against its oracle, in both widths, with and
// without `ignoreCase`. The input is an expression, a line feed and a name.

#include <algorithm>

#include "common/util/Wildcard.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/WildcardOracle.h"

namespace {

// The time is exponential in the number of stars.
constexpr std::ptrdiff_t kMostStars = 5;
constexpr std::size_t kLongestText = 40;

// One character of the result for each byte of `text`.
template <class String>
String Widened(const std::string& text) {
  String result;
  for (const char character : text) {
    result += static_cast<unsigned char>(character);
  }
  return result;
}

bool IsBounded(const std::string& expression, const std::string& name) {
  const auto is_star = [](char c) { return c == '*' || c == '<'; };
  return expression.size() <= kLongestText && name.size() <= kLongestText &&
         std::count_if(expression.begin(), expression.end(), is_star) <=
             kMostStars;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  std::string_view text = Text(data, size);
  text = text.substr(0, text.find('\0'));
  const std::string expression = RemoveFirstLine(text);
  const std::string name(text);
  if (!IsBounded(expression, name)) {
    return 0;
  }
  for (const bool ignore_case : {false, true}) {
    const bool expected =
        OracleMatches(Widened<std::u32string>(expression),
                      Widened<std::u32string>(name), ignore_case);
    Require(IsNameInExpressionA(expression.c_str(), name.c_str(),
                                ignore_case) == expected);
    Require(IsNameInExpression(Widened<std::wstring>(expression).c_str(),
                               Widened<std::wstring>(name).c_str(),
                               ignore_case) == expected);
  }
  return 0;
}
