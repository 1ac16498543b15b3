#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <new>
#include <stdexcept>
#include <string_view>

#include "common/util/StringHelpers.h"

#ifdef __GLIBC__
#include <printf.h>
#endif

#include "tests/support/Allocations.h"
#include "tests/support/Bounded.h"

namespace {

// Functions that exist in both widths are tested in both.
template <class String>
struct WidthTraits;

template <>
struct WidthTraits<std::string> {
  using Regex = std::regex;
};

template <>
struct WidthTraits<std::wstring> {
  using Regex = std::wregex;
};

template <class String>
class BothWidths : public testing::Test {
 protected:
  using Strings = std::vector<String>;

  static String Text(std::string_view ascii) {
    return String(ascii.begin(), ascii.end());
  }

  static Strings Pieces(std::string_view text, std::string_view separator) {
    return split(Text(text),
                 typename WidthTraits<String>::Regex(Text(separator)));
  }

  static Strings Texts(std::initializer_list<std::string_view> list) {
    Strings texts;
    for (const std::string_view text : list) {
      texts.push_back(Text(text));
    }
    return texts;
  }

  static String Replaced(std::string_view text, std::string_view search,
                         std::string_view replacement) {
    String result = Text(text);
    replace_all(result, Text(search), Text(replacement));
    return result;
  }

  static Outcome ReplaceBounded(std::string_view text, std::string_view search,
                                std::string_view replacement) {
    return RunBounded([&] { Replaced(text, search, replacement); });
  }
};

using Widths = testing::Types<std::string, std::wstring>;

template <class String>
class Split : public BothWidths<String> {};
TYPED_TEST_SUITE(Split, Widths);

TYPED_TEST(Split, KeepsTheEmptyTokenBeforeALeadingSeparator) {
  EXPECT_EQ(this->Pieces("/a", "/"), this->Texts({"", "a"}));
  EXPECT_EQ(this->Pieces("//a", "/"), this->Texts({"", "", "a"}));
}

TYPED_TEST(Split, KeepsTheEmptyTokenBetweenAdjacentSeparators) {
  EXPECT_EQ(this->Pieces("a//b", "/"), this->Texts({"a", "", "b"}));
  EXPECT_EQ(this->Pieces("a///b", "/"), this->Texts({"a", "", "", "b"}));
}

TYPED_TEST(Split, DropsAnEmptyTokenAfterATrailingSeparator) {
  EXPECT_EQ(this->Pieces("a/b/", "/"), this->Texts({"a", "b"}));
  EXPECT_EQ(this->Pieces("a//", "/"), this->Texts({"a", ""}));
  EXPECT_EQ(this->Pieces("/", "/"), this->Texts({""}));
  EXPECT_EQ(this->Pieces("//", "/"), this->Texts({"", ""}));
}

TYPED_TEST(Split, ReturnsTheWholeTextWithoutAMatch) {
  EXPECT_EQ(this->Pieces("abc", "/"), this->Texts({"abc"}));
  EXPECT_EQ(this->Pieces("", "/"), this->Texts({""}));
  EXPECT_EQ(this->Pieces("a\nb", "/"), this->Texts({"a\nb"}));
}

TYPED_TEST(Split, SeparatesAtEveryMatchOfTheExpression) {
  EXPECT_EQ(this->Pieces("a, b;  c", "[,;] *"), this->Texts({"a", "b", "c"}));
  EXPECT_EQ(this->Pieces("a12b345c", "[0-9]+"), this->Texts({"a", "b", "c"}));
  EXPECT_EQ(this->Pieces("axbXc", "x"), this->Texts({"a", "bXc"}));
}

TYPED_TEST(Split, AnchorsTheExpressionAtTheEndsOfTheWholeText) {
  EXPECT_EQ(this->Pieces("aab", "^a"), this->Texts({"", "ab"}));
  EXPECT_EQ(this->Pieces("aba", "a$"), this->Texts({"ab"}));
}

// The standard libraries differ in the tokens between empty matches inside a
// text, but not in their number.
TYPED_TEST(Split, SeparatesAtEmptyMatches) {
  EXPECT_EQ(this->Pieces("ab", "^"), this->Texts({"", "ab"}));
  EXPECT_EQ(this->Pieces("abc", "").size(), 4U);
  EXPECT_EQ(this->Pieces("abc", "x*").size(), 4U);
}

TYPED_TEST(Split, LeavesOutCaptures) {
  EXPECT_EQ(this->Pieces("a-(b)-c", "-(\\()?"), this->Texts({"a", "b)", "c"}));
}

TYPED_TEST(Split, UsesTheFlagsOfTheExpression) {
  using Regex = typename WidthTraits<TypeParam>::Regex;
  const Regex separator(this->Text("x"), std::regex_constants::icase);
  EXPECT_EQ(split(this->Text("aXbxc"), separator),
            this->Texts({"a", "b", "c"}));
}

TYPED_TEST(Split, KeepsZerosInsideTokens) {
  using namespace std::string_view_literals;
  EXPECT_EQ(this->Pieces("a\0b/\0/c"sv, "/"),
            this->Texts({"a\0b"sv, "\0"sv, "c"}));
}

TYPED_TEST(Split, LeavesTheTextUnchanged) {
  using Regex = typename WidthTraits<TypeParam>::Regex;
  const TypeParam text = this->Text("a/b");
  split(text, Regex(this->Text("/")));
  EXPECT_EQ(text, this->Text("a/b"));
}

TEST(SplitExpression, IsCheckedWhenItIsBuilt) {
  EXPECT_THROW(std::regex("["), std::regex_error);
}

TEST(StringFormat, FillsTheFormat) {
  EXPECT_EQ(string_format("%d-%s", 7, "x"), "7-x");
  EXPECT_EQ(string_format("plain"), "plain");
  EXPECT_EQ(string_format("100%%"), "100%");
  EXPECT_EQ(string_format(""), "");
}

TEST(StringFormat, AcceptsArgumentsOfEveryKindInOrder) {
  EXPECT_EQ(string_format("%d %s %.2f %c %lld %x|%d %d %d %g", 1, "two", 3.0,
                          '4', 5LL, 6U, 7, 8, 9, 10.5),
            "1 two 3.00 4 5 6|7 8 9 10.5");
}

TEST(StringFormat, ReturnsLongResultsWhole) {
  for (const std::size_t length :
       {std::size_t{127}, std::size_t{128}, std::size_t{255}, std::size_t{256},
        std::size_t{1023}, std::size_t{1024}, std::size_t{4096},
        std::size_t{100'000}}) {
    const std::string text(length, 'x');
    EXPECT_EQ(string_format("%s", text.c_str()), text);
    EXPECT_EQ(string_format(text), text);
  }
}

TEST(StringFormat, EndsAtAZeroInTheResult) {
  EXPECT_EQ(string_format("ab%ccd", '\0'), "ab");
  EXPECT_EQ(string_format("%cabc", '\0'), "");
}

TEST(StringFormat, EndsAtAZeroInTheFormat) {
  EXPECT_EQ(string_format(std::string("a%d\0b%d", 7), 1, 2), "a1");
}

TEST(StringFormat, LeavesTheCallersFormatUnchanged) {
  const std::string format = "%d";
  EXPECT_EQ(string_format(format, 1), "1");
  EXPECT_EQ(format, "%d");
}

// The tests run in the "C" locale, where no character above 127 has a multibyte
// form.
TEST(StringFormat, ReturnsNothingWhenAnArgumentCannotBeFormatted) {
  EXPECT_EQ(string_format("%lc", L'\u20AC'), "");
  EXPECT_EQ(string_format("ab%lscd", L"\u20AC"), "");
}

TEST(StringFormat, IgnoresAnEarlierOverflow) {
  errno = EOVERFLOW;
  EXPECT_EQ(string_format("%lc", L'\u20AC'), "");
}

TEST(StringFormat, ThrowsWhenTheLengthExceedsAnInt) {
  EXPECT_THROW(string_format("%2147483648d", 1), std::bad_alloc);
}

// INT_MAX characters and the terminator are more than an int counts.
TEST(StringFormat, ThrowsWhenOnlyTheTerminatorExceedsAnInt) {
  EXPECT_THROW(string_format("%*d%*d", INT_MAX / 2 + 1, 1, INT_MAX / 2, 1),
               std::bad_alloc);
}

#ifdef __GLIBC__

int g_formatted = 0;

int CountAndPrint(FILE* stream, const printf_info*, const void* const* values) {
  ++g_formatted;
  return std::fprintf(stream, "<%d>", *static_cast<const int*>(values[0]));
}

int DescribeInt(const printf_info*, std::size_t count, int* types, int* sizes) {
  if (count > 0) {
    types[0] = PA_INT;
    sizes[0] = sizeof(int);
  }
  return 1;
}

TEST(StringFormat, FormatsExactlyTwice) {
  ASSERT_EQ(register_printf_specifier('Y', CountAndPrint, DescribeInt), 0);
  g_formatted = 0;
  EXPECT_EQ(string_format("a%Yb", 7), "a<7>b");
  EXPECT_EQ(g_formatted, 2);

  const std::string tail(5000, 'x');
  g_formatted = 0;
  EXPECT_EQ(string_format("%Y%s", 8, tail.c_str()), "<8>" + tail);
  EXPECT_EQ(g_formatted, 2);
}

#endif

template <class String>
class ReplaceAll : public BothWidths<String> {};
TYPED_TEST_SUITE(ReplaceAll, Widths);

TYPED_TEST(ReplaceAll, ReplacesEveryOccurrence) {
  EXPECT_EQ(this->Replaced("axbx", "x", "yy"), this->Text("ayybyy"));
  EXPECT_EQ(this->Replaced("xaxx", "x", "y"), this->Text("yayy"));
  EXPECT_EQ(this->Replaced("one two one", "one", "1st"),
            this->Text("1st two 1st"));
}

TYPED_TEST(ReplaceAll, ReplacesAtBothEnds) {
  EXPECT_EQ(this->Replaced("x", "x", "y"), this->Text("y"));
  EXPECT_EQ(this->Replaced("x", "x", ""), this->Text(""));
  EXPECT_EQ(this->Replaced("abc", "abc", "d"), this->Text("d"));
}

TYPED_TEST(ReplaceAll, LeavesATextWithoutOccurrencesUnchanged) {
  EXPECT_EQ(this->Replaced("abc", "x", "y"), this->Text("abc"));
  EXPECT_EQ(this->Replaced("abc", "abcd", "y"), this->Text("abc"));
  EXPECT_EQ(this->Replaced("abc", "B", "y"), this->Text("abc"));
  EXPECT_EQ(this->Replaced("", "x", "y"), this->Text(""));
}

TYPED_TEST(ReplaceAll, SkipsTextAfterAShorterReplacement) {
  EXPECT_EQ(this->Replaced("aaaa", "aa", "b"), this->Text("baa"));
  EXPECT_EQ(this->Replaced("xxxx", "x", ""), this->Text("xx"));
  EXPECT_EQ(this->Replaced("ababab", "ab", ""), this->Text("ab"));
  EXPECT_EQ(this->Replaced("abcabcabc", "abc", "d"), this->Text("dabcd"));
}

TYPED_TEST(ReplaceAll, SearchesTheEndOfALongerReplacementAgain) {
  EXPECT_EQ(this->Replaced("aba", "ab", "xxa"), this->Text("xxaa"));
  EXPECT_EQ(this->Replaced("abb", "ab", "xxa"), this->Text("xxxxa"));
  EXPECT_EQ(this->Replaced("aaa", "aa", "baa"), this->Text("babaa"));
}

TYPED_TEST(ReplaceAll, SkipsTheStartOfTheReplacement) {
  EXPECT_EQ(this->Replaced("aba", "a", "ax"), this->Text("axbax"));
  EXPECT_EQ(this->Replaced("aa", "aa", "baa"), this->Text("baa"));
}

TYPED_TEST(ReplaceAll, ReplacesZeros) {
  using namespace std::string_view_literals;
  EXPECT_EQ(this->Replaced("a\0b\0"sv, "\0"sv, "0"), this->Text("a0b0"));
  EXPECT_EQ(this->Replaced("a0b"sv, "0"sv, "\0"sv), this->Text("a\0b"sv));
}

// Compares with the rule applied position by position, for every combination of
// a few short strings with which the call returns.
TYPED_TEST(ReplaceAll, FollowsItsRuleForAllShortTexts) {
  const std::vector<std::string> all = {
      "",      "a",     "b",     "aa",   "ab",   "ba",   "bb",
      "aaa",   "aab",   "aba",   "abb",  "baa",  "bab",  "bba",
      "bbb",   "aaaa",  "abab",  "aabb", "abba", "baab", "aabab",
      "ababa", "aaaaa", "bbaab", "abaab"};
  for (const std::string& search : all) {
    for (const std::string& replacement : all) {
      if (search.empty() ||
          replacement.find(search, search.size()) != std::string::npos) {
        continue;
      }
      for (const std::string& text : all) {
        std::string expected = text;
        for (std::size_t p = 0; p + search.size() <= expected.size();) {
          const bool here = expected.substr(p, search.size()) == search;
          if (here) {
            expected = expected.substr(0, p) + replacement +
                       expected.substr(p + search.size());
          }
          p += here ? search.size() : 1;
        }
        EXPECT_EQ(this->Replaced(text, search, replacement),
                  this->Text(expected))
            << search << " by " << replacement << " in " << text;
      }
    }
  }
}

TYPED_TEST(ReplaceAll, KeepsTheReplacementsMadeBeforeMemoryRunsOut) {
  using Unit = typename TypeParam::value_type;
  TypeParam text = this->Text("xxx");
  const TypeParam search = this->Text("x");
  const TypeParam replacement(1000, Unit{'y'});
  g_on_allocation = [](std::size_t bytes) {
    if (bytes > 1500 * sizeof(Unit)) {
      throw std::bad_alloc();
    }
  };
  EXPECT_THROW(replace_all(text, search, replacement), std::bad_alloc);
  g_on_allocation = nullptr;
  EXPECT_EQ(text, replacement + this->Text("xx"));
}

TYPED_TEST(ReplaceAll, DoesNotReturnWhenItFindsItsOwnReplacement) {
  EXPECT_EQ(this->ReplaceBounded("a", "a", "xa"), Outcome::kDidNotReturn);
  EXPECT_EQ(this->ReplaceBounded("ab", "ab", "xxab"), Outcome::kDidNotReturn);
  EXPECT_EQ(this->ReplaceBounded("b", "a", "xa"), Outcome::kReturned);
}

TYPED_TEST(ReplaceAll, DoesNotReturnForAnEmptySearch) {
  EXPECT_EQ(this->ReplaceBounded("a", "", "x"), Outcome::kDidNotReturn);
  EXPECT_EQ(this->ReplaceBounded("a", "", ""), Outcome::kDidNotReturn);
  EXPECT_EQ(this->ReplaceBounded("", "", ""), Outcome::kDidNotReturn);
}

TEST(EndsWith, ComparesTheLastBytes) {
  EXPECT_TRUE(ends_with("abc", "bc"));
  EXPECT_TRUE(ends_with("abc", "c"));
  EXPECT_TRUE(ends_with("abc", "abc"));
  EXPECT_FALSE(ends_with("abc", "ab"));
  EXPECT_FALSE(ends_with("abc", "xc"));
  EXPECT_FALSE(ends_with("abc", "bx"));
  EXPECT_FALSE(ends_with("abc", "xbc"));
}

TEST(EndsWith, AcceptsTheEmptySuffix) {
  EXPECT_TRUE(ends_with("abc", ""));
  EXPECT_TRUE(ends_with("", ""));
}

TEST(EndsWith, RejectsALongerSuffix) {
  EXPECT_FALSE(ends_with("bc", "abc"));
  EXPECT_FALSE(ends_with("", "a"));
}

TEST(EndsWith, IsExact) {
  EXPECT_FALSE(ends_with("abc", "BC"));
  EXPECT_FALSE(ends_with("abc", "bc "));
  EXPECT_FALSE(ends_with("\xC3\xA9", "\xC3\x89"));
  EXPECT_TRUE(ends_with("x\xC3\xA9", "\xA9"));
}

TEST(EndsWith, ComparesZerosLikeOtherBytes) {
  const std::string text("a\0b", 3);
  EXPECT_TRUE(ends_with(text, std::string("\0b", 2)));
  EXPECT_FALSE(ends_with(text, std::string("\0c", 2)));
  EXPECT_FALSE(ends_with(text, std::string("x\0b", 3)));
}

constexpr char32_t kLastCodePoint = 0x10FFFF;

bool IsSurrogate(char32_t code_point) {
  return 0xD800 <= code_point && code_point <= 0xDFFF;
}

std::string Utf8(char32_t code_point) {
  const auto byte = [](char32_t value) { return static_cast<char>(value); };
  const auto trail = [&](int shift) {
    return byte(0x80 + (code_point >> shift) % 64);
  };
  if (code_point < 0x80) {
    return {byte(code_point)};
  }
  if (code_point < 0x800) {
    return {byte(0xC0 + code_point / 64), trail(0)};
  }
  if (code_point < 0x10000) {
    return {byte(0xE0 + code_point / 4096), trail(6), trail(0)};
  }
  return {byte(0xF0 + code_point / 262144), trail(12), trail(6), trail(0)};
}

// The text of the range error that `conversion` throws; empty without one.
template <class Conversion>
std::string RangeError(Conversion conversion) {
  try {
    conversion();
  } catch (const std::range_error& error) {
    return error.what();
  }
  return "";
}

constexpr const char* kFromBytesError = "wstring_convert: from_bytes error";
constexpr const char* kToBytesError = "wstring_convert: to_bytes error";

void ExpectNotUtf8(const std::string& bytes) {
  EXPECT_EQ(RangeError([&] { s2ws(bytes); }), kFromBytesError)
      << testing::PrintToString(bytes);
}

TEST(Utf8Conversion, ConvertsEveryCodePointBothWays) {
  for (char32_t code_point = 0; code_point <= kLastCodePoint; ++code_point) {
    if (IsSurrogate(code_point)) {
      continue;
    }
    const std::wstring wide = {L'<', static_cast<wchar_t>(code_point), L'>'};
    const std::string narrow = "<" + Utf8(code_point) + ">";
    ASSERT_EQ(s2ws(narrow), wide) << std::hex << std::uint32_t{code_point};
    ASSERT_EQ(ws2s(wide), narrow) << std::hex << std::uint32_t{code_point};
  }
}

TEST(Utf8Conversion, ConvertsKnownForms) {
  EXPECT_EQ(s2ws("\xC3\xA9"), L"\u00E9");
  EXPECT_EQ(s2ws("a\xE2\x82\xAC z"), L"a\u20AC z");
  EXPECT_EQ(ws2s(L"\U0001F600"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(ws2s(L"\u07FF\u0800\uFFFF\U0010FFFF"),
            "\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF4\x8F\xBF\xBF");
  EXPECT_EQ(s2ws(""), L"");
  EXPECT_EQ(ws2s(L""), "");
}

TEST(Utf8Conversion, KeepsZeros) {
  EXPECT_EQ(s2ws(std::string("a\0b\0", 4)), std::wstring(L"a\0b\0", 4));
  EXPECT_EQ(ws2s(std::wstring(L"a\0b\0", 4)), std::string("a\0b\0", 4));
}

TEST(Utf8Conversion, TreatsAByteOrderMarkAsACharacter) {
  EXPECT_EQ(s2ws("\xEF\xBB\xBF"
                 "a"),
            L"\uFEFF"
            L"a");
  EXPECT_EQ(ws2s(L"\uFEFF"
                 L"a"),
            "\xEF\xBB\xBF"
            "a");
  EXPECT_EQ(ws2s(L"a"), "a");
}

TEST(Utf8Conversion, ConvertsLongTextsWhole) {
  std::wstring wide;
  std::string narrow;
  for (int i = 0; i < 20'000; ++i) {
    for (const char32_t code_point :
         {U'x', U'\u00E9', U'\u20AC', U'\U0001F600'}) {
      wide += static_cast<wchar_t>(code_point);
      narrow += Utf8(code_point);
    }
  }
  EXPECT_EQ(s2ws(narrow), wide);
  EXPECT_EQ(ws2s(wide), narrow);
}

// Checks all pairs of a first and a second byte, completed with valid trailing
// bytes, against the Unicode standard's table of well-formed sequences.
TEST(S2ws, AcceptsWellFormedSequencesOnly) {
  const auto is_well_formed = [](int first, int second) {
    const auto within = [second](int low, int high) {
      return low <= second && second <= high;
    };
    switch (first) {
      case 0xE0:
        return within(0xA0, 0xBF);
      case 0xED:
        return within(0x80, 0x9F);
      case 0xF0:
        return within(0x90, 0xBF);
      case 0xF4:
        return within(0x80, 0x8F);
      default:
        return 0xC2 <= first && first <= 0xF4 && within(0x80, 0xBF);
    }
  };
  for (int first = 0x80; first <= 0xFF; ++first) {
    for (int second = 0; second <= 0xFF; ++second) {
      std::string bytes = {static_cast<char>(first), static_cast<char>(second)};
      bytes += first >= 0xE0 ? "\x80" : "";
      bytes += first >= 0xF0 ? "\xBF" : "";
      const std::string expected =
          is_well_formed(first, second) ? "" : kFromBytesError;
      EXPECT_EQ(RangeError([&] { s2ws(bytes); }), expected)
          << std::hex << first << ' ' << second;
    }
  }
}

TEST(S2ws, RejectsSingleNonAsciiBytes) {
  for (int byte = 0x80; byte <= 0xFF; ++byte) {
    ExpectNotUtf8({static_cast<char>(byte)});
    ExpectNotUtf8({'a', static_cast<char>(byte), 'b', 'c', 'd'});
  }
}

TEST(S2ws, RejectsTruncatedSequences) {
  for (const std::string whole :
       {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF"}) {
    for (std::size_t length = 1; length < whole.size(); ++length) {
      ExpectNotUtf8(whole.substr(0, length));
      ExpectNotUtf8("abc" + whole.substr(0, length));
      ExpectNotUtf8(whole.substr(0, length) + "abc");
      ExpectNotUtf8(whole.substr(0, length) + whole);
    }
  }
}

TEST(S2ws, RejectsEveryWrongTrailingByte) {
  for (int byte = 0; byte <= 0xFF; ++byte) {
    if (0x80 <= byte && byte <= 0xBF) {
      continue;
    }
    const char wrong = static_cast<char>(byte);
    ExpectNotUtf8({'\xE2', '\x82', wrong});
    ExpectNotUtf8({'\xF0', '\x9F', wrong, '\x80'});
    ExpectNotUtf8({'\xF0', '\x9F', '\x98', wrong});
  }
}

TEST(S2ws, RejectsSurrogatesAndValuesAboveTheLastCodePoint) {
  ExpectNotUtf8("\xED\xA0\x80");
  ExpectNotUtf8("\xED\xBF\xBF");
  ExpectNotUtf8("\xED\xA0\xBD\xED\xB8\x80");
  ExpectNotUtf8("\xF4\x90\x80\x80");
  ExpectNotUtf8("\xF8\x88\x80\x80\x80");
}

TEST(S2ws, RejectsOverlongForms) {
  ExpectNotUtf8("\xC0\x80");
  ExpectNotUtf8("\xC1\xBF");
  ExpectNotUtf8("\xE0\x9F\xBF");
  ExpectNotUtf8("\xF0\x8F\xBF\xBF");
}

TEST(S2ws, RejectsAnErrorAtTheEndOfALongText) {
  for (std::size_t length = 0; length < 70; ++length) {
    ExpectNotUtf8(std::string(length, 'x') + "\xFF");
    ExpectNotUtf8(std::string(length, 'x') + "\xC3");
  }
}

TEST(Ws2s, RejectsSurrogates) {
  for (char32_t code_point = 0xD800; code_point <= 0xDFFF; ++code_point) {
    const std::wstring wide = {L'a', static_cast<wchar_t>(code_point)};
    EXPECT_EQ(RangeError([&] { ws2s(wide); }), kToBytesError);
  }
}

TEST(Ws2s, RejectsValuesAboveTheLastCodePoint) {
  for (const std::uint32_t value :
       {0x110000U, 0x1FFFFFU, 0x200000U, 0x7FFFFFFFU, 0x80000000U, 0x80000041U,
        0xFFFFFFFFU}) {
    const std::wstring wide = {static_cast<wchar_t>(value), L'a'};
    EXPECT_EQ(RangeError([&] { ws2s(wide); }), kToBytesError) << value;
  }
}

}  // namespace
