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

}  // namespace
