#include <gtest/gtest.h>

#include <string>

#include "logger/Format.h"
#include "tests/support/LogReader.h"

namespace {

TEST(Format, NamesTheFilesOfALog) {
  EXPECT_EQ(LogFileName("launcher"), "launcher.log");
  EXPECT_EQ(OldLogFileName("launcher", 1), "launcher.1.log");
  EXPECT_EQ(OldLogFileName("launcher", 12), "launcher.12.log");
}

// Readers outside this tree know these texts.
TEST(Format, ReportsLostLinesByTheirNumberAndTheLastError) {
  EXPECT_EQ(LostReport(17, 2),
            "[LOGGER    ] lines that could not be written: 17, errno = 2");
}

TEST(Format, OrdersTheLevelsBySeverity) {
  std::string texts;
  for (const LevelFormat& level : kLevelsBySeverity) {
    texts.append(level.text).append(1, ' ');
  }
  EXPECT_EQ(texts, "VERBOSE DEBUG MESSAGE WARNING ERROR CRITICAL ");
}

}  // namespace
