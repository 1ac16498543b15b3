#include <gtest/gtest.h>

#include <exception>
#include <type_traits>

#include "common/AError.h"

namespace {

TEST(AError, HasFixedValues) {
  EXPECT_EQ(static_cast<int>(AERROR_NOT_FOUND), 4);
  EXPECT_EQ(static_cast<int>(AERROR_PARSE_JSON), 6001);
}

TEST(AError, IsAFourByteEnumeration) {
  EXPECT_TRUE(std::is_enum_v<AERROR>);
  EXPECT_EQ(sizeof(AERROR), 4U);
}

TEST(AError, IsCaughtByItsTypeButNotAsAnException) {
  const auto catcher = [] {
    try {
      throw AERROR_PARSE_JSON;
    } catch (const std::exception&) {
      return 0;
    } catch (AERROR error) {
      return static_cast<int>(error);
    }
  };
  EXPECT_EQ(catcher(), 6001);
}

}  // namespace
