#include <gtest/gtest.h>

#include "common/util/Trim.h"

namespace {

std::string Trimmed(std::string text) { return trim(text); }

TEST(Trim, RemovesWhiteSpaceFromBothEnds) {
  EXPECT_EQ(Trimmed(" \t a b\r\n"), "a b");
  EXPECT_EQ(Trimmed(" \t a b \r\n"), "a b");
  EXPECT_EQ(Trimmed("\v\f\r\n\t x\v\f\r\n\t "), "x");
}

TEST(Trim, EmptiesAStringOfWhiteSpace) {
  EXPECT_EQ(Trimmed("   "), "");
  EXPECT_EQ(Trimmed(""), "");
}

TEST(Trim, KeepsEverythingElse) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    const bool is_space = byte == ' ' || (byte >= '\t' && byte <= '\r');
    EXPECT_EQ(Trimmed(text), is_space ? "" : text) << byte;
  }
}

TEST(Trim, StopsAtHighBytes) {
  EXPECT_EQ(Trimmed("\xA0 a"), "\xA0 a");
  EXPECT_EQ(Trimmed("\xA0 a \x85"), "\xA0 a \x85");
  EXPECT_EQ(Trimmed(" \xA0 a \x85 "), "\xA0 a \x85");
}

TEST(Trim, ReturnsTheSameString) {
  std::string text = " a ";
  EXPECT_EQ(&trim(text), &text);
  EXPECT_EQ(text, "a");
}

}  // namespace
