#include <gtest/gtest.h>

#include "logger/LogLevels.h"

namespace {

TEST(LogLevels, GrowMoreSevereFromVerboseToCritical) {
  EXPECT_LT(Severity(LOGLEVEL_VERBOSE), Severity(LOGLEVEL_DEBUG));
  EXPECT_LT(Severity(LOGLEVEL_DEBUG), Severity(LOGLEVEL_MESSAGE));
  EXPECT_LT(Severity(LOGLEVEL_MESSAGE), Severity(LOGLEVEL_WARNING));
  EXPECT_LT(Severity(LOGLEVEL_WARNING), Severity(LOGLEVEL_ERROR));
  EXPECT_LT(Severity(LOGLEVEL_ERROR), Severity(LOGLEVEL_CRITICAL));
}

TEST(LogLevels, AreWrittenAsTheyAreConfigured) {
  EXPECT_EQ(LevelText(LOGLEVEL_VERBOSE), "VERBOSE");
  EXPECT_EQ(LevelText(LOGLEVEL_DEBUG), "DEBUG");
  EXPECT_EQ(LevelText(LOGLEVEL_MESSAGE), "MESSAGE");
  EXPECT_EQ(LevelText(LOGLEVEL_WARNING), "WARNING");
  EXPECT_EQ(LevelText(LOGLEVEL_ERROR), "ERROR");
  EXPECT_EQ(LevelText(LOGLEVEL_CRITICAL), "CRITICAL");
}

TEST(LogLevels, TakeAnUnknownValueForAnError) {
  for (const int value : {-1, 0, 3, 5, 15, 18, 32}) {
    const auto level = static_cast<LOGLEVEL>(value);
    EXPECT_EQ(Severity(level), Severity(LOGLEVEL_ERROR)) << value;
    EXPECT_EQ(LevelText(level), "ERROR") << value;
  }
}

}  // namespace
