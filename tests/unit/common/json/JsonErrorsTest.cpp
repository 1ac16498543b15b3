#include <gtest/gtest.h>

#include "common/json/JsonErrors.h"

TEST(JsonErrors, AreNoneForADocument) {
  EXPECT_TRUE(FindJsonErrors("{\"a\": [1, null]}").empty());
}

TEST(JsonErrors, TellWhereTheParserStumbled) {
  const auto errors = FindJsonErrors("{\"a\": 1,\n \"b\" 2}");
  ASSERT_FALSE(errors.empty());
  EXPECT_EQ(errors[0].offset, 14U);
  EXPECT_NE(errors[0].message.find("':'"), std::string::npos);
}

TEST(JsonErrors, AreFoundInTextsThatEndInACarriageReturn) {
  EXPECT_FALSE(FindJsonErrors("{\"a\"\r").empty());
  EXPECT_FALSE(FindJsonErrors("").empty());
}

TEST(JsonErrors, IncludeNestingBeyondTheLimit) {
  constexpr std::size_t kLevels = 1001;
  EXPECT_EQ(FindJsonErrors(std::string(kLevels, '[')).size(), 1U);
}
