#include <gtest/gtest.h>

#include "tools/common/Terminal.h"

TEST(Terminal, ColoursWhenEnabled) {
  EXPECT_EQ(Coloured("x", Colour::kRed, true), "\x1b[1;31mx\x1b[0m");
  EXPECT_EQ(Coloured("x", Colour::kRed, false), "x");
  EXPECT_EQ(Coloured("x", Colour::kNone, true), "x");
}
