#include <gtest/gtest.h>

#include "tools/text/Terminal.h"

namespace {

TEST(Terminal, ColoursWhenEnabled) {
  EXPECT_EQ(Coloured("x", Colour::kRed, true), "\x1b[1;31mx\x1b[0m");
  EXPECT_EQ(Coloured("x", Colour::kRed, false), "x");
  EXPECT_EQ(Coloured("x", Colour::kNone, true), "x");
}

TEST(Terminal, OverwritesThePreviousScreen) {
  EXPECT_EQ(Screenful("a\nbc\n", {24, 4}), "\x1b[Ha   \nbc  \n\x1b[J");
  EXPECT_EQ(Screenful("", {24, 80}), "\x1b[H\x1b[J");
}

TEST(Terminal, CutsWideLines) {
  EXPECT_EQ(Screenful("abcde\n", {24, 4}), "\x1b[Habc…\n\x1b[J");
}

TEST(Terminal, ShowsHowManyLinesDoNotFit) {
  constexpr const char* kLines = "1\n2\n3\n4\n";
  EXPECT_EQ(Screenful(kLines, {5, 1}), "\x1b[H1\n2\n3\n4\n\x1b[J");
  EXPECT_EQ(Screenful(kLines, {4, 16}),
            "\x1b[H1               \n2               \n"
            "... 2 lines more\n\x1b[J");
  EXPECT_EQ(Screenful(kLines, {1, 16}), "\x1b[H\x1b[J");
}

TEST(Terminal, HasAUsualSizeIfItIsUnknown) {
  const TerminalSize size = SizeOf(-1);
  EXPECT_EQ(size.rows, 24U);
  EXPECT_EQ(size.columns, 80U);
}

}  // namespace
