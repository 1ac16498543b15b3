#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "common/util/Wildcard.h"
#include "tests/support/Allocations.h"
#include "tests/support/WildcardOracle.h"

namespace {

constexpr bool kIgnoreCase = true;
constexpr bool kExactCase = false;

bool MatchesWide(const std::string& expression, const std::string& name,
                 bool ignore_case) {
  return IsNameInExpression(
      std::wstring(expression.begin(), expression.end()).c_str(),
      std::wstring(name.begin(), name.end()).c_str(), ignore_case);
}

// Expects the same result in both widths and with either `ignoreCase`.
bool Matches(const std::string& expression, const std::string& name) {
  const bool result =
      IsNameInExpressionA(expression.c_str(), name.c_str(), kExactCase);
  for (const bool ignore_case : {kExactCase, kIgnoreCase}) {
    EXPECT_EQ(
        IsNameInExpressionA(expression.c_str(), name.c_str(), ignore_case),
        result);
    EXPECT_EQ(MatchesWide(expression, name, ignore_case), result);
  }
  return result;
}

void ExpectMatch(const std::string& expression,
                 std::initializer_list<const char*> names) {
  for (const char* const name : names) {
    EXPECT_TRUE(Matches(expression, name)) << expression << " on " << name;
  }
}

void ExpectMismatch(const std::string& expression,
                    std::initializer_list<const char*> names) {
  for (const char* const name : names) {
    EXPECT_FALSE(Matches(expression, name)) << expression << " on " << name;
  }
}

TEST(Wildcard, EmptyExpressionMatchesOnlyTheEmptyName) {
  ExpectMatch("", {""});
  ExpectMismatch("", {"a", ".", "abc"});
}

TEST(Wildcard, LiteralsMatchThemselves) {
  ExpectMatch("a.b", {"a.b"});
  ExpectMismatch("a.b", {"", "ab", "axb", "a.", ".b", "a.bc", "xa.b", "a..b"});
  ExpectMismatch("a", {"b", "", "aa"});
}

TEST(Wildcard, StarMatchesAnyRun) {
  ExpectMatch("*", {"", "a", "abc", "a.b.c", "."});
  ExpectMatch("a*", {"a", "abc", "a."});
  ExpectMatch("*.txt", {"a.txt", ".txt", "a.b.txt"});
  ExpectMismatch("*.txt", {"a.txt.bak", "txt", "", "a.tx"});
  ExpectMatch("*b*", {"b", "ab", "bc", "abc", "bb"});
  ExpectMatch("a*b*c", {"abc", "axbxc", "abbcc", "a.b.c"});
  ExpectMismatch("a*b*c", {"acb", "ab", "abcd"});
  ExpectMatch("**", {"", "a", "ab"});
  ExpectMatch("*a", {"a", "aa", "ba"});
  ExpectMismatch("*a", {"", "ab"});
}

TEST(Wildcard, StarExtendsToTheEndIfItMust) {
  ExpectMatch("*\"", {"", "abc", "a."});
  ExpectMatch("*<", {"", "abc"});
}

TEST(Wildcard, QuestionMarkMatchesOneCharacter) {
  ExpectMatch("?", {"a", ".", "?"});
  ExpectMismatch("?", {"", "ab"});
  ExpectMatch("??", {"ab", ".."});
  ExpectMismatch("??", {"a", "abc"});
  ExpectMatch("a?c", {"abc", "a.c"});
}

TEST(Wildcard, OnlyAFinalStarMatchesPastTheEnd) {
  ExpectMismatch("ab?", {"ab"});
  ExpectMatch("ab?*", {"ab", "abc", "abcd"});
  ExpectMatch("ab????*", {"ab"});
  ExpectMatch("a>*", {"a"});
  ExpectMatch("a>>?*", {"a"});
  ExpectMismatch("ab?\"", {"ab"});
  ExpectMismatch("ab?<", {"ab"});
  ExpectMismatch("ab?*c", {"ab"});
  ExpectMismatch("ab?*\"", {"ab"});
  ExpectMatch("ab?**", {"ab"});
}

TEST(Wildcard, LessThanStopsAtTheLastDot) {
  ExpectMatch("<.txt", {"a.b.txt", "a.txt", ".txt"});
  ExpectMismatch("<.b", {"a.b.c"});
  ExpectMatch("<.", {"a.", "a.b."});
  ExpectMismatch("<", {"a.", "a.b", "a.b.", "."});
  ExpectMatch("<b", {"b"});
  ExpectMatch("<b.c", {"ab.c", "a.b.c", "b.c"});
  ExpectMatch("a<.c", {"a.c", "ab.c", "a.b.c"});
  ExpectMatch("<.*", {"a.b.c"});
}

TEST(Wildcard, LessThanMatchesNothingAtTheStartOfANameWithoutDot) {
  ExpectMatch("<", {""});
  ExpectMismatch("<", {"abc", "a"});
  ExpectMismatch("<c", {"abc"});
  ExpectMatch("<abc", {"abc"});
}

TEST(Wildcard, LessThanIsLikeAStarLaterInANameWithoutDot) {
  ExpectMatch("a<", {"a", "abc"});
  ExpectMatch("a<c", {"abc", "ac", "abcc"});
  ExpectMismatch("a<c", {"ab"});
  ExpectMatch("a.<", {"a.b", "a.", "a.bcd"});
}

TEST(Wildcard, GreaterThanMatchesOneCharacterOrNothingAtTheLastDot) {
  ExpectMatch("a>.txt", {"a.txt", "ab.txt"});
  ExpectMismatch("a>.txt", {"abc.txt", "a.b.txt"});
  ExpectMatch("a>b.c", {"a.b.c"});
  ExpectMismatch("a>b", {"a.b"});
  ExpectMatch("a>.b", {"a.b", "ax.b"});
  ExpectMatch(">", {"a"});
  ExpectMismatch(">", {"", "ab", "."});
  ExpectMismatch("a>", {"a"});
  ExpectMatch(">.", {".", "a.", ".."});
}

TEST(Wildcard, DoubleQuoteMatchesADotOrNothing) {
  ExpectMatch("a\"", {"a", "a."});
  ExpectMatch("a\"b", {"ab", "a.b"});
  ExpectMismatch("a\"b", {"a..b", "axb"});
  ExpectMatch("\"", {"", "."});
  ExpectMismatch("\"", {"a", ".."});
  ExpectMatch("\"\"", {"", ".", ".."});
}

TEST(Wildcard, HasNoEscapeAndNamesHaveNoWildcards) {
  ExpectMatch("a?", {"a*", "a?", "a<", "a>", "a\""});
  ExpectMatch("a*", {"a?<"});
  ExpectMismatch("a", {"*", "?", "<"});
  ExpectMismatch("\\*", {"*"});
  ExpectMatch("\\*", {"\\", "\\x"});
  ExpectMismatch("ab", {"a*", "a?", "*"});
}

TEST(Wildcard, IgnoresCaseWhenAsked) {
  EXPECT_TRUE(IsNameInExpressionA("a*", "ABC", kIgnoreCase));
  EXPECT_FALSE(IsNameInExpressionA("a*", "ABC", kExactCase));
  EXPECT_TRUE(IsNameInExpression(L"a*", L"ABC", kIgnoreCase));
  EXPECT_FALSE(IsNameInExpression(L"a*", L"ABC", kExactCase));
  EXPECT_TRUE(IsNameInExpressionA("AZ*az", "azXAZ", kIgnoreCase));
  EXPECT_TRUE(IsNameInExpressionA("*b<.C", "aB.c", kIgnoreCase));
  EXPECT_FALSE(IsNameInExpressionA("*b<.C", "aB.c", kExactCase));
}

// Every pair of bytes matches if equal, or equal ASCII letters but for case.
TEST(Wildcard, IgnoresTheCaseOfAsciiLettersOnly) {
  const auto upper = [](int c) { return 'a' <= c && c <= 'z' ? c - 32 : c; };
  for (int i = 1; i < 256; ++i) {
    if (i == '*' || i == '?' || i == '<' || i == '>' || i == '"') {
      continue;
    }
    for (int j = 1; j < 256; ++j) {
      const char expression[] = {static_cast<char>(i), '\0'};
      const char name[] = {static_cast<char>(j), '\0'};
      const bool alike = upper(i) == upper(j);
      ASSERT_EQ(IsNameInExpressionA(expression, name, kIgnoreCase), alike)
          << i << ' ' << j;
      ASSERT_EQ(IsNameInExpressionA(expression, name, kExactCase), i == j);
    }
  }
}

TEST(Wildcard, ComparesWholeWideCharacters) {
  const auto matches = [](std::uint32_t expression, std::uint32_t name) {
    const wchar_t left[] = {static_cast<wchar_t>(expression), L'\0'};
    const wchar_t right[] = {static_cast<wchar_t>(name), L'\0'};
    return IsNameInExpression(left, right, kIgnoreCase);
  };
  for (const std::uint32_t value :
       {0xE9U, 0xFFU, 0x100U, 0x161U, 0x4E2DU, 0x1F600U, 0x10FFFFU, 0x110000U,
        0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_TRUE(matches(value, value)) << value;
    EXPECT_FALSE(matches(value, value ^ 0x20)) << value;
    EXPECT_EQ(matches(value, value & 0xFF), value <= 0xFF) << value;
  }
  // Only the low bits of these are a letter or a wildcard.
  EXPECT_FALSE(matches(0x161, 'a'));
  EXPECT_FALSE(matches(0x161, 0x141));
  EXPECT_FALSE(matches(0x12A, 'x'));
  EXPECT_FALSE(matches(0x13F, 'x'));
  EXPECT_TRUE(matches(0x12A, 0x12A));
}

TEST(Wildcard, MatchesWideNamesCharacterByCharacter) {
  EXPECT_TRUE(IsNameInExpression(L"?", L"\U0001F600", kExactCase));
  EXPECT_TRUE(IsNameInExpression(L"\u00E9<.*", L"\u00E9x.\u20AC", kExactCase));
  EXPECT_FALSE(IsNameInExpressionA("?", "\xC3\xA9", kExactCase));
  EXPECT_TRUE(IsNameInExpressionA("??", "\xC3\xA9", kExactCase));
}

TEST(Wildcard, StopsAtTheTerminators) {
  EXPECT_TRUE(IsNameInExpressionA("ab\0c", "ab\0d", kExactCase));
  EXPECT_TRUE(IsNameInExpressionA("*\0c", "ab", kExactCase));
  EXPECT_FALSE(IsNameInExpressionA("a\0*", "ab", kExactCase));
}

std::u32string Characters(std::string_view text) {
  std::u32string characters;
  for (const char character : text) {
    characters += static_cast<unsigned char>(character);
  }
  return characters;
}

void ExpectAsOracle(const std::string& expression, const std::string& name) {
  const std::wstring wide_expression(expression.begin(), expression.end());
  const std::wstring wide_name(name.begin(), name.end());
  for (const bool ignore_case : {kExactCase, kIgnoreCase}) {
    const bool expected =
        OracleMatches(Characters(expression), Characters(name), ignore_case);
    ASSERT_EQ(
        IsNameInExpressionA(expression.c_str(), name.c_str(), ignore_case),
        expected)
        << expression << " on " << name << ' ' << ignore_case;
    ASSERT_EQ(IsNameInExpression(wide_expression.c_str(), wide_name.c_str(),
                                 ignore_case),
              expected)
        << expression << " on " << name << ' ' << ignore_case;
  }
}

// Every text of up to `length` letters of `alphabet`.
std::vector<std::string> AllTexts(std::string_view alphabet,
                                  std::size_t length) {
  std::vector<std::string> texts = {""};
  for (std::size_t i = 0; i < texts.size() && texts[i].size() < length; ++i) {
    for (const char letter : alphabet) {
      texts.push_back(texts[i] + letter);
    }
  }
  return texts;
}

TEST(Wildcard, AgreesWithTheOracleOnAllShortExpressionsAndNames) {
  const std::vector<std::string> names = AllTexts("ab.", 4);
  const std::vector<std::string> expressions = AllTexts("aB.*?<>\"", 4);
  ASSERT_EQ(names.size(), 121U);
  ASSERT_EQ(expressions.size(), 4681U);
  for (const std::string& expression : expressions) {
    for (const std::string& name : names) {
      ExpectAsOracle(expression, name);
    }
    if (HasFatalFailure()) {
      return;
    }
  }
}

TEST(Wildcard, AgreesWithTheOracleOnLongerTexts) {
  std::mt19937 random(20261121);
  const auto text = [&random](std::string_view alphabet, std::size_t length) {
    std::string result;
    for (std::size_t i = random() % (length + 1); i > 0; --i) {
      result += alphabet[random() % alphabet.size()];
    }
    return result;
  };
  int matches = 0;
  for (int i = 0; i < 40'000; ++i) {
    const std::string expression = text("aaBB..*?<>\"*?<>\"c\xE9", 10);
    const std::string name = text("aAbB..c\xC9*", 14);
    ExpectAsOracle(expression, name);
    if (HasFatalFailure()) {
      return;
    }
    matches += OracleMatches(Characters(expression), Characters(name), true);
  }
  // Both results must be frequent for this to test anything.
  EXPECT_GT(matches, 1'000);
}

// The same, with expressions made from the name: most of them nearly match.
TEST(Wildcard, AgreesWithTheOracleOnNearMatches) {
  std::mt19937 random(4711);
  constexpr std::string_view kAlphabet = "abAB..";
  constexpr std::string_view kWildcards = "*?<>\"";
  for (int i = 0; i < 40'000; ++i) {
    std::string name;
    std::string expression;
    for (std::size_t count = random() % 12; count > 0; --count) {
      const char letter = kAlphabet[random() % kAlphabet.size()];
      name += random() % 8 != 0 ? std::string(1, letter) : "";
      expression +=
          random() % 3 == 0 ? kWildcards[random() % kWildcards.size()] : letter;
    }
    ExpectAsOracle(expression, name);
    if (HasFatalFailure()) {
      return;
    }
  }
}

// A text whose terminator is directly before a page that cannot be read.
template <class Unit>
class GuardedText {
 public:
  explicit GuardedText(std::basic_string_view<Unit> text)
      : page_bytes_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
    void* const pages = mmap(nullptr, 2 * page_bytes_, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    pages_ = static_cast<char*>(pages);
    EXPECT_EQ(mprotect(pages_ + page_bytes_, page_bytes_, PROT_NONE), 0);
    const std::size_t bytes = (text.size() + 1) * sizeof(Unit);
    text_ = reinterpret_cast<Unit*>(pages_ + page_bytes_ - bytes);
    std::copy(text.begin(), text.end(), text_);
    text_[text.size()] = Unit{};
  }
  ~GuardedText() { munmap(pages_, 2 * page_bytes_); }
  GuardedText(const GuardedText&) = delete;
  GuardedText& operator=(const GuardedText&) = delete;

  const Unit* Get() const { return text_; }

 private:
  std::size_t page_bytes_;
  char* pages_;
  Unit* text_;
};

TEST(Wildcard, ReadsNothingPastTheTerminators) {
  for (const std::string& name : AllTexts("a.", 3)) {
    const GuardedText<char> guarded_name(name);
    const std::wstring wide_name(name.begin(), name.end());
    const GuardedText<wchar_t> guarded_wide_name(wide_name);
    for (const std::string& expression : AllTexts("a.*?<>\"", 3)) {
      const GuardedText<char> guarded(expression);
      const std::wstring wide(expression.begin(), expression.end());
      const GuardedText<wchar_t> guarded_wide(wide);
      const bool expected =
          OracleMatches(Characters(expression), Characters(name), kIgnoreCase);
      ASSERT_EQ(
          IsNameInExpressionA(guarded.Get(), guarded_name.Get(), kIgnoreCase),
          expected);
      ASSERT_EQ(IsNameInExpression(guarded_wide.Get(), guarded_wide_name.Get(),
                                   kIgnoreCase),
                expected);
    }
  }
}

TEST(Wildcard, MovesFarPastTheEndWithoutReadingThere) {
  const GuardedText<char> name("ab");
  for (const char wildcard : {'?', '>'}) {
    const std::string many(100'000, wildcard);
    EXPECT_FALSE(IsNameInExpressionA(many.c_str(), name.Get(), kExactCase));
    EXPECT_FALSE(
        IsNameInExpressionA((many + "a").c_str(), name.Get(), kExactCase));
    EXPECT_FALSE(
        IsNameInExpressionA((many + "<\"").c_str(), name.Get(), kExactCase));
    EXPECT_TRUE(
        IsNameInExpressionA((many + "*").c_str(), name.Get(), kExactCase));
  }
}

// The texts are too long for a string that allocates nothing.
TEST(Wildcard, AllocatesNothing) {
  const std::string expression = std::string(100, '?') + "*a<>\"b";
  const std::string name = std::string(200, 'a') + ".B";
  const std::wstring wide_expression(expression.begin(), expression.end());
  const std::wstring wide_name(name.begin(), name.end());
  static int allocations = 0;
  for (const bool ignore_case : {kExactCase, kIgnoreCase}) {
    g_on_allocation = [](std::size_t) { ++allocations; };
    const bool narrow =
        IsNameInExpressionA(expression.c_str(), name.c_str(), ignore_case);
    const bool wide = IsNameInExpression(wide_expression.c_str(),
                                         wide_name.c_str(), ignore_case);
    g_on_allocation = nullptr;
    EXPECT_EQ(allocations, 0);
    EXPECT_EQ(narrow, ignore_case);
    EXPECT_EQ(wide, ignore_case);
  }
}

TEST(Wildcard, AcceptsLongNames) {
  const std::string name(100'000, 'a');
  EXPECT_TRUE(IsNameInExpressionA("*a", name.c_str(), kExactCase));
  EXPECT_FALSE(IsNameInExpressionA("*b", name.c_str(), kExactCase));
  EXPECT_TRUE(
      IsNameInExpressionA((name + "*").c_str(), name.c_str(), kExactCase));
}

}  // namespace
