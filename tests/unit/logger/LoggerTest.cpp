#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "logger/Logger.h"
#include "tests/support/LogReader.h"
#include "tests/support/TempDir.h"

namespace {

// With a format that the compiler would not let through.
void LogUnchecked(ILog* log, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log->LogV(LOGLEVEL_ERROR, format, arguments);
  va_end(arguments);
}

constexpr std::array kBySeverity{LOGLEVEL_VERBOSE, LOGLEVEL_DEBUG,
                                 LOGLEVEL_MESSAGE, LOGLEVEL_WARNING,
                                 LOGLEVEL_ERROR,   LOGLEVEL_CRITICAL};

TEST(Logger, WritesWhatIsAtLeastAsSevereAsTheThreshold) {
  for (std::size_t threshold = 0; threshold < kBySeverity.size(); ++threshold) {
    const TempDir dir;
    Logger logger(dir.Path(), "x", kBySeverity[threshold]);
    ASSERT_EQ(logger.Open(), 0);
    for (const LOGLEVEL level : kBySeverity) {
      logger.Log(level, "%d", level);
    }
    EXPECT_EQ(ReadLines(dir.Path() / "x.log").size(),
              kBySeverity.size() - threshold);
  }
}

TEST(Logger, WritesTextsAsTheyStand) {
  const TempDir dir;
  Logger logger(dir.Path(), "x", LOGLEVEL_DEBUG);
  ASSERT_EQ(logger.Open(), 0);
  logger.LogText(LOGLEVEL_ERROR, "100% %s %n");
  EXPECT_EQ(ReadMessages(dir.Path() / "x.log"),
            std::vector<std::string>{"100% %s %n"});
}

TEST(Logger, KeepsErrnoAndFormatsIt) {
  const TempDir dir;
  Logger logger(dir.Path(), "x", LOGLEVEL_DEBUG);
  ASSERT_EQ(logger.Open(), 0);
  errno = ENOTDIR;
  LogUnchecked(&logger, "%m");
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(ReadMessages(dir.Path() / "x.log"),
            std::vector<std::string>{"Not a directory"});
}

}  // namespace
