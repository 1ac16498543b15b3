#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <set>
#include <string>

#include "environment/LoggerLibrary.h"
#include "logger/Logger.h"
#include "tests/support/LogReader.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SmallDisk.h"

namespace {

namespace fs = std::filesystem;

constexpr int kPages = 16;

Logger& Open(const fs::path& directory, const LogLimits& limits = {}) {
  auto* const logger = new Logger(directory, "x", LOGLEVEL_DEBUG, limits);
  EXPECT_EQ(logger->Open(), 0);
  return *logger;
}

constexpr std::size_t kTextBytes = 250;

// All messages have the same length, and a page is not a multiple of it.
std::string Text(int number) {
  std::string text = std::to_string(number);
  return text.insert(0, kTextBytes - text.size(), '.');
}

struct Outcome {
  std::set<std::string> whole;
  int cut = 0;
  int reported_lost = 0;
};

// Counts the lost lines that `message` reports. False when it is not a report.
bool IsReport(const std::string& message, Outcome* outcome) {
  unsigned long long lost = 0;
  int error = 0;
  if (std::sscanf(message.c_str(), kLostLinesMessage, &lost, &error) != 2) {
    return false;
  }
  EXPECT_EQ(error, ENOSPC);
  outcome->reported_lost += static_cast<int>(lost);
  return true;
}

// Reads the log. A line longer than the logged ones is two glued lines.
Outcome Read(const fs::path& log) {
  constexpr std::size_t kMaxPrefixBytes = 60;
  Outcome outcome;
  for (const std::string& line : ReadLines(log)) {
    EXPECT_LE(line.size(), kMaxPrefixBytes + kTextBytes) << "glued: " << line;
    const std::string message =
        line.size() < kMaxPrefixBytes ? "" : MessageOf(line);
    if (message.size() == kTextBytes) {
      EXPECT_TRUE(outcome.whole.insert(message).second) << line;
    } else if (!IsReport(message, &outcome)) {
      ++outcome.cut;
    }
  }
  return outcome;
}

TEST(FullDisk, GluesNoLinesAndReportsTheLoss) {
  REQUIRE_SANDBOX();
  SmallDisk disk(kPages);
  Logger& one = Open(disk.Path());
  Logger& other = Open(disk.Path());
  one.Log(LOGLEVEL_ERROR, "%s", Text(0).c_str());
  disk.Fill(2);
  constexpr int kLines = 100;
  for (int i = 1; i < kLines; ++i) {
    Logger& logger = i % 2 == 0 ? one : other;
    errno = EBADMSG;
    logger.Log(LOGLEVEL_ERROR, "%s", Text(i).c_str());
    EXPECT_EQ(errno, EBADMSG);
  }
  const Outcome full = Read(disk.Path() / "x.log");
  EXPECT_EQ(full.cut, 1) << "exactly one line is cut";
  EXPECT_EQ(full.reported_lost, 0);
  disk.Free();
  other.Log(LOGLEVEL_ERROR, "%s", Text(kLines).c_str());
  one.Log(LOGLEVEL_ERROR, "%s", Text(kLines + 1).c_str());

  const Outcome after = Read(disk.Path() / "x.log");
  EXPECT_EQ(after.cut, 1);
  EXPECT_EQ(after.whole.size(), full.whole.size() + 2);
  EXPECT_EQ(after.whole.count(Text(kLines)), 1U);
  EXPECT_EQ(after.whole.count(Text(kLines + 1)), 1U);
  EXPECT_EQ(after.reported_lost, kLines - static_cast<int>(full.whole.size()));
}

TEST(FullDisk, FillsUpAgainAndAgainWithoutGluing) {
  REQUIRE_SANDBOX();
  SmallDisk disk(kPages);
  Logger& logger = Open(disk.Path());
  int logged = 0;
  for (int round = 0; round < 5; ++round) {
    disk.Fill(1);
    for (int i = 0; i < 40; ++i) {
      logger.Log(LOGLEVEL_ERROR, "%s", Text(logged++).c_str());
    }
    disk.Free();
  }
  logger.Log(LOGLEVEL_ERROR, "%s", Text(logged++).c_str());
  const Outcome outcome = Read(disk.Path() / "x.log");
  EXPECT_GE(outcome.cut, 1);
  EXPECT_EQ(outcome.reported_lost,
            logged - static_cast<int>(outcome.whole.size()));
}

// The disk is full before there are as many old files as are kept.
TEST(FullDisk, GluesNoLinesInARotatedLogAndReportsTheLoss) {
  REQUIRE_SANDBOX();
  SmallDisk disk(kPages);
  Logger& logger = Open(disk.Path(), {kPages / 4 * SmallDisk::kPageBytes, 5});
  constexpr int kLines = 1'000;
  for (int i = 0; i < kLines; ++i) {
    logger.Log(LOGLEVEL_ERROR, "%s", Text(i).c_str());
  }
  ASSERT_TRUE(fs::exists(disk.Path() / "x.3.log"));
  const Outcome removed = Read(disk.Path() / "x.3.log");
  fs::remove(disk.Path() / "x.3.log");
  logger.Log(LOGLEVEL_ERROR, "%s", Text(kLines).c_str());

  std::size_t whole = removed.whole.size();
  int reported_lost = removed.reported_lost;
  for (const fs::path& file : FilesIn(disk.Path())) {
    const Outcome outcome = Read(file);
    whole += outcome.whole.size();
    reported_lost += outcome.reported_lost;
  }
  EXPECT_GT(reported_lost, 0);
  EXPECT_EQ(static_cast<int>(whole) + reported_lost, kLines + 1);
}

// A disk cannot become read-only while the logger has a file on it open for
// writing. So the test mounts an empty read-only disk over the directory.
TEST(ReadOnlyDirectory, CountsTheLinesLostAndReportsThem) {
  REQUIRE_SANDBOX();
  SmallDisk disk(kPages);
  const fs::path logs = disk.Path() / "logs";
  fs::create_directory(logs);
  Logger& logger = Open(logs);
  ASSERT_EQ(mount("none", logs.c_str(), "tmpfs", MS_RDONLY, nullptr), 0);
  for (int i = 0; i < 3; ++i) {
    logger.LogText(LOGLEVEL_ERROR, "lost");
  }
  ASSERT_EQ(umount(logs.c_str()), 0);
  logger.LogText(LOGLEVEL_ERROR, "written");
  EXPECT_EQ(ReadMessages(logs / "x.log"),
            (Messages{LostReport(3, EROFS), "written"}));
}

TEST(FullDisk, IsNoReasonToRefuseALogger) {
  REQUIRE_SANDBOX();
  SmallDisk disk(kPages);
  disk.Fill(0);
  const auto before = FilesIn(disk.Path());
  ILog* log = nullptr;
  EXPECT_EQ(InitLogger(disk.Path().c_str()), 0);
  EXPECT_EQ(FilesIn(disk.Path()), before);
  ASSERT_EQ(GetLogger(kLoggerInterfaceVersion, "x", LOGLEVEL_DEBUG, &log), 0);
  log->LogText(LOGLEVEL_ERROR, "lost");
  log->LogText(LOGLEVEL_ERROR, "lost");
  disk.Free();
  log->LogText(LOGLEVEL_ERROR, "written");
  EXPECT_EQ(ReadMessages(disk.Path() / "x.log"),
            (Messages{LostReport(2, ENOSPC), "written"}));
}

TEST(FullDisk, IsNoReasonToRefuseALoggerWhoseFileCannotBeMade) {
  REQUIRE_SANDBOX();
  SmallDisk disk(kPages);
  disk.UseUpFiles();
  ILog* log = nullptr;
  EXPECT_EQ(InitLogger(disk.Path().c_str()), 0);
  ASSERT_EQ(GetLogger(kLoggerInterfaceVersion, "x", LOGLEVEL_DEBUG, &log), 0);
  log->LogText(LOGLEVEL_ERROR, "lost");
  EXPECT_FALSE(fs::exists(disk.Path() / "x.log"));
  disk.FreeFiles();
  log->LogText(LOGLEVEL_ERROR, "written");
  EXPECT_EQ(ReadMessages(disk.Path() / "x.log"),
            (Messages{LostReport(1, ENOSPC), "written"}));
}

TEST(ReadOnlyDirectory, IsRefused) {
  REQUIRE_SANDBOX();
  SmallDisk disk(kPages);
  disk.MakeReadOnly();
  EXPECT_EQ(InitLogger(disk.Path().c_str()), EROFS);
  EXPECT_EQ(InitLogger((disk.Path() / "logs").c_str()), EROFS);
}

}  // namespace
