#include <gtest/gtest.h>

#include "tools/check/KeyNames.h"

namespace {

TEST(KeyNames, MeanThemselves) {
  for (const char* const key : {"name", "program", "argc", "args"}) {
    EXPECT_EQ(KeyMeantBy(key), key);
  }
}

TEST(KeyNames, AreRecognisedInSlips) {
  EXPECT_EQ(KeyMeantBy("Name"), "name");
  EXPECT_EQ(KeyMeantBy("programm"), "program");
  EXPECT_EQ(KeyMeantBy("porgram"), "program");
  EXPECT_EQ(KeyMeantBy("ARGS"), "args");
  EXPECT_EQ(KeyMeantBy("agrc"), "argc");
  EXPECT_EQ(KeyMeantBy("nm"), "name");
}

TEST(KeyNames, AreRecognisedUnderOtherNames) {
  for (const char* const key : {"command", "CMD", "exec", "path"}) {
    EXPECT_EQ(KeyMeantBy(key), "program") << key;
  }
  for (const char* const key : {"argv", "arguments", "arg", "params"}) {
    EXPECT_EQ(KeyMeantBy(key), "args") << key;
  }
  EXPECT_EQ(KeyMeantBy("label"), "name");
}

TEST(KeyNames, AreNotSeenInOtherWords) {
  EXPECT_EQ(KeyMeantBy("restart"), "");
  EXPECT_EQ(KeyMeantBy("n"), "");
  EXPECT_EQ(KeyMeantBy(""), "");
}

TEST(IndexKeys, AreDecimalNumbersWithoutLeadingZeros) {
  for (const std::uint64_t index : {0U, 9U, 10U, 123U}) {
    EXPECT_EQ(IndexOf(std::to_string(index)), index);
  }
  for (const char* const key : {"", "00", "01", "-1", "+1", "1 ", "x", "1x"}) {
    EXPECT_EQ(IndexOf(key), std::nullopt) << key;
  }
}

}  // namespace
