#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "logger/Logger.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/LoggerFixture.h"

namespace {

namespace fs = std::filesystem;

using LostLinesTest = LoggerFixture;

// Logs with a format that the compiler would reject.
void LogUnchecked(ILog* log, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log->LogV(LOGLEVEL_ERROR, format, arguments);
  va_end(arguments);
}

TEST(Logger, WritesMessagesAtLeastAsSevereAsTheThreshold) {
  std::size_t written = kLevelsBySeverity.size();
  for (const LevelFormat& threshold : kLevelsBySeverity) {
    const TempDir dir;
    Logger logger(dir.Path(), "x", threshold.level);
    ASSERT_EQ(logger.Open(), 0);
    for (const LevelFormat& level : kLevelsBySeverity) {
      logger.Log(level.level, "%d", level.level);
    }
    EXPECT_EQ(ReadLines(dir.Path() / "x.log").size(), written--);
  }
}

TEST(Logger, WritesATextUnchanged) {
  const TempDir dir;
  Logger logger(dir.Path(), "x", LOGLEVEL_DEBUG);
  ASSERT_EQ(logger.Open(), 0);
  logger.LogText(LOGLEVEL_ERROR, "100% %s %n");
  EXPECT_EQ(ReadMessages(dir.Path() / "x.log"), Messages{"100% %s %n"});
}

TEST(Logger, KeepsErrnoAndFormatsIt) {
  const TempDir dir;
  Logger logger(dir.Path(), "x", LOGLEVEL_DEBUG);
  ASSERT_EQ(logger.Open(), 0);
  errno = ENOTDIR;
  LogUnchecked(&logger, "%m");
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(ReadMessages(dir.Path() / "x.log"), Messages{"Not a directory"});
}

TEST_F(LostLinesTest, AreCountedWhileTheDirectoryIsGone) {
  Logger& logger = Open();
  LogNumbers(logger, 1, 1);
  fs::remove_all(logs_);
  OutlastLook();
  LogNumbers(logger, 2, 5);
  EXPECT_FALSE(fs::exists(logs_));
  fs::create_directory(logs_);
  LogNumbers(logger, 7, 2);
  EXPECT_EQ(ReadMessages(log_), (Messages{LostReport(5, ENOENT), "7", "8"}));
}

TEST_F(LostLinesTest, AreCountedTogetherWithThoseOfForkedChildren) {
  Logger& logger = Open();
  fs::remove_all(logs_);
  LogNumbers(logger, 1, 2);
  EXPECT_TRUE(PassesInForkedChild([&] { LogNumbers(logger, 3, 3); }));
  fs::create_directory(logs_);
  // The child is forked while the loss is unreported; only one may report it.
  EXPECT_TRUE(PassesInForkedChild([&] { LogNumbers(logger, 6, 1); }));
  LogNumbers(logger, 7, 1);
  EXPECT_EQ(ReadMessages(log_), (Messages{LostReport(5, ENOENT), "6", "7"}));
}

TEST_F(LostLinesTest, AreReportedWhateverTheThreshold) {
  Logger logger(logs_, "x", LOGLEVEL_CRITICAL);
  ASSERT_EQ(logger.Open(), 0);
  fs::remove_all(logs_);
  logger.Log(LOGLEVEL_CRITICAL, "lost");
  logger.Log(LOGLEVEL_ERROR, "below");
  fs::create_directory(logs_);
  logger.Log(LOGLEVEL_ERROR, "below");
  EXPECT_FALSE(fs::exists(log_));
  logger.Log(LOGLEVEL_CRITICAL, "here");
  EXPECT_EQ(ReadMessages(log_), (Messages{LostReport(1, ENOENT), "here"}));
}

}  // namespace
