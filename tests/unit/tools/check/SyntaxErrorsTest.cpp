#include <gtest/gtest.h>

#include "tools/check/SyntaxErrors.h"

namespace {

TEST(SyntaxErrors, AreNoneForADocument) {
  EXPECT_TRUE(FindSyntaxErrors("{\"a\": [1, null]}").empty());
}

TEST(SyntaxErrors, SayWhereTheParserFailed) {
  const Findings errors = FindSyntaxErrors("{\"a\": 1,\n \"b\" 2}");
  ASSERT_FALSE(errors.empty());
  EXPECT_STREQ(errors[0].rule->id, "not-json");
  EXPECT_EQ(errors[0].place.offset, 14U);
  EXPECT_NE(errors[0].problem.find("':'"), std::string::npos);
}

TEST(SyntaxErrors, AreFoundInTextsThatEndInACarriageReturn) {
  EXPECT_FALSE(FindSyntaxErrors("{\"a\"\r").empty());
  EXPECT_FALSE(FindSyntaxErrors("").empty());
}

TEST(SyntaxErrors, IncludeNestingBeyondTheLimit) {
  constexpr std::size_t kLevels = 100'000;
  EXPECT_EQ(FindSyntaxErrors(std::string(kLevels, '[')).size(), 1U);
}

// The first finding as "id offset".
std::string First(const std::string& text) {
  const Findings errors = FindSyntaxErrors(text);
  return errors.empty() ? ""
                        : std::string(errors[0].rule->id) + " " +
                              std::to_string(errors[0].place.offset.value());
}

TEST(SyntaxErrors, NameTheUsualSlips) {
  EXPECT_EQ(First("{'a': 1}"), "quotes 1");
  EXPECT_EQ(First("{\"a\": 'x'}"), "quotes 6");
  EXPECT_EQ(First("{“a”: 1}"), "quotes 1");
  EXPECT_EQ(First("{a: 1}"), "quotes 1");
  EXPECT_EQ(First("{_a: 1}"), "quotes 1");
  EXPECT_EQ(First("{\"a\": 1,\n}"), "trailing-comma 9");
  EXPECT_EQ(First("[1, ]"), "trailing-comma 4");
  EXPECT_EQ(First("[1 }"), "not-json 3");
  EXPECT_EQ(First("{\"a\"/*c*/: 1}"), "comment-misplaced 4");
  EXPECT_EQ(First("{\"a\"//c\n: 1}"), "comment-misplaced 4");
  EXPECT_EQ(First("{ # c\n}"), "comment-misplaced 2");
  EXPECT_EQ(First("{\"a\": tru}"), "not-json 6");
  EXPECT_EQ(First("{\"a\": 1"), "not-json 7");
}

TEST(SyntaxErrors, FollowAByteOrderMark) {
  EXPECT_EQ(First("\xEF\xBB\xBF{}"), "bom 0");
  const Findings errors = FindSyntaxErrors("\xEF\xBB\xBF{a: 1}");
  ASSERT_EQ(errors.size(), 2U);
  EXPECT_STREQ(errors[1].rule->id, "quotes");
  EXPECT_EQ(errors[1].place.offset, 4U);
}

TEST(SyntaxErrors, SayThatTheTextEnds) {
  for (const char* const text : {"", "{", "[1, ", "{\"a\": "}) {
    EXPECT_EQ(FindSyntaxErrors(text)[0].problem,
              "ends before all its brackets and quotes are closed")
        << text;
  }
}

}  // namespace
