#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "logger/LogFile.h"

#ifdef __linux__
#include <linux/capability.h>
#include <sys/syscall.h>
#endif

#include <algorithm>
#include <array>
#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "logger/FileSizeLimit.h"
#include "logger/Logger.h"
#include "logger/Rotation.h"
#include "tests/support/LogReader.h"
#include "tests/support/Coverage.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;

using Messages = std::vector<std::string>;

constexpr int kAboveStandardStreams = 3;
constexpr int kManyDescriptors = 100;

std::string LostReport(int lines, int error) {
  return "[LOGGER    ] lines that could not be written: " +
         std::to_string(lines) + ", errno = " + std::to_string(error);
}

int OpenDescriptors() {
  int count = 0;
  for (int number = 0; number < kManyDescriptors; ++number) {
    count += fcntl(number, F_GETFD) >= 0 ? 1 : 0;
  }
  return count;
}

// Whether a forked copy that runs `body` ends well, without failures.
bool CopyEndsWell(const std::function<void()>& body) {
  const pid_t copy = fork();
  if (copy == 0) {
    body();
    KeepCoverage();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  const bool ended =
      Eventually([&] { return waitpid(copy, &status, WNOHANG) != 0; });
  return ended && status == 0;
}

// Root's, too, in the sandbox, so that the modes of files count.
void DropPrivileges() {
#ifdef __linux__
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  EXPECT_EQ(syscall(SYS_capset, &header, none.data()), 0);
#endif
}

class LogFileTest : public testing::Test {
 protected:
  LogFileTest() { fs::create_directory(logs_); }

  Logger& Open(const LogLimits& limits = {}) {
    loggers_.push_back(
        std::make_unique<Logger>(logs_, "x", LOGLEVEL_DEBUG, limits));
    EXPECT_EQ(loggers_.back()->Open(), 0);
    return *loggers_.back();
  }

  static void Log(Logger& logger, const std::string& text) {
    logger.Log(LOGLEVEL_ERROR, "%s", text.c_str());
  }

  // So many lines, the texts being the numbers from `first` on.
  static void LogNumbers(Logger& logger, int first, int count) {
    for (int i = first; i < first + count; ++i) {
      Log(logger, std::to_string(i));
    }
  }

  static Messages Numbers(int first, int count) {
    Messages messages;
    for (int i = first; i < first + count; ++i) {
      messages.push_back(std::to_string(i));
    }
    return messages;
  }

  // A line of one digit, as long as the process's number allows.
  std::size_t LineBytes() {
    TempDir dir;
    Logger logger(dir.Path(), "x", LOGLEVEL_DEBUG);
    EXPECT_EQ(logger.Open(), 0);
    Log(logger, "0");
    return fs::file_size(dir.Path() / "x.log");
  }

  const TempDir dir_;
  const fs::path logs_ = dir_.Path() / "logs";
  const fs::path log_ = logs_ / "x.log";

 private:
  std::vector<std::unique_ptr<Logger>> loggers_;
};

TEST_F(LogFileTest, AppendsToWhatIsThere) {
  Log(Open(), "first");
  Log(Open(), "second");
  EXPECT_EQ(ReadMessages(log_), (Messages{"first", "second"}));
}

TEST_F(LogFileTest, EndsTheLineThatADeadWriterLeft) {
  dir_.Write("logs/x.log", "2026-11-21T06:2");
  Logger& logger = Open();
  Log(logger, "first");
  Log(logger, "second");
  const auto lines = ReadLines(log_);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], "2026-11-21T06:2");
  EXPECT_EQ(MessageOf(lines[1]), "first");
  EXPECT_EQ(MessageOf(lines[2]), "second");
}

TEST_F(LogFileTest, BeginsANewFileWhenTheOldOneIsFull) {
  const auto line = static_cast<off_t>(LineBytes());
  // Not full after two lines, full after three.
  LogNumbers(Open({2 * line + 1, 5}), 1, 7);
  EXPECT_EQ(ReadMessages(logs_ / "x.2.log"), Numbers(1, 3));
  EXPECT_EQ(ReadMessages(logs_ / "x.1.log"), Numbers(4, 3));
  EXPECT_EQ(ReadMessages(log_), Numbers(7, 1));
}

TEST_F(LogFileTest, CountsAFileOfExactlyTheLimitAsFull) {
  const auto line = static_cast<off_t>(LineBytes());
  LogNumbers(Open({2 * line, 5}), 1, 3);
  EXPECT_EQ(ReadMessages(logs_ / "x.1.log"), Numbers(1, 2));
  EXPECT_EQ(ReadMessages(log_), Numbers(3, 1));
}

TEST_F(LogFileTest, KeepsSoManyOldFilesAndNothingElse) {
  LogNumbers(Open({1, 3}), 1, 8);
  EXPECT_EQ(FilesIn(logs_),
            (std::vector<fs::path>{logs_ / "x.1.log", logs_ / "x.2.log",
                                   logs_ / "x.3.log", log_}));
  EXPECT_EQ(ReadMessages(logs_ / "x.3.log"), Numbers(5, 1));
  EXPECT_EQ(ReadMessages(logs_ / "x.2.log"), Numbers(6, 1));
  EXPECT_EQ(ReadMessages(logs_ / "x.1.log"), Numbers(7, 1));
  EXPECT_EQ(ReadMessages(log_), Numbers(8, 1));
}

TEST_F(LogFileTest, IsRotatedAtTenMebibytesWithFiveOldFiles) {
  Logger& logger = Open();
  const std::string text(1'000'000, 'x');
  for (int i = 0; i < 100; ++i) {
    Log(logger, text);
  }
  constexpr std::size_t kTenMebibytes = 10'485'760;
  EXPECT_EQ(FilesIn(logs_).size(), 6U);
  for (int number = 1; number <= 5; ++number) {
    const auto file = logs_ / ("x." + std::to_string(number) + ".log");
    EXPECT_GE(fs::file_size(file), kTenMebibytes);
    EXPECT_LT(fs::file_size(file), kTenMebibytes + text.size() + 100);
  }
}

TEST_F(LogFileTest, MakesNewFilesForTheUserAlone) {
  const mode_t before = umask(0);
  LogNumbers(Open({1, 3}), 1, 3);
  umask(before);
  for (const fs::path& file : FilesIn(logs_)) {
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600)) << file;
  }
}

TEST_F(LogFileTest, FollowsTheRotationOfAnotherLauncher) {
  const auto line = static_cast<off_t>(LineBytes());
  const LogLimits limits{2 * line, 5};
  Logger& one = Open(limits);
  Logger& other = Open(limits);
  Log(one, "1");
  Log(other, "2");
  Log(one, "3");
  Log(other, "4");
  Log(other, "5");
  Log(one, "6");
  EXPECT_EQ(ReadMessages(logs_ / "x.2.log"), Numbers(1, 2));
  EXPECT_EQ(ReadMessages(logs_ / "x.1.log"), Numbers(3, 2));
  EXPECT_EQ(ReadMessages(log_), Numbers(5, 2));
}

TEST_F(LogFileTest, FillsTheGapThatARemovedOldFileLeaves) {
  Logger& logger = Open({1, 5});
  LogNumbers(logger, 1, 4);
  fs::remove(logs_ / "x.2.log");
  LogNumbers(logger, 5, 1);
  EXPECT_EQ(ReadMessages(logs_ / "x.3.log"), Numbers(1, 1));
  EXPECT_EQ(ReadMessages(logs_ / "x.2.log"), Numbers(3, 1));
  EXPECT_EQ(ReadMessages(logs_ / "x.1.log"), Numbers(4, 1));
}

TEST_F(LogFileTest, NumbersManyFilesThatWereLeftAsideAFewAtATime) {
  for (int file = 10; file < 35; ++file) {
    const std::string time = "000000000000000000" + std::to_string(file);
    dir_.Write("logs/x." + time + "-1.full", time + "\n");
  }
  const auto left = [this] {
    return std::ranges::count_if(FilesIn(logs_), [](const fs::path& file) {
      return file.extension() == ".full";
    });
  };
  Logger& logger = Open({1, 100});
  LogNumbers(logger, 1, 2);
  EXPECT_EQ(left(), 16);
  EXPECT_EQ(ReadLines(logs_ / "x.10.log"),
            std::vector<std::string>{"00000000000000000010"});
  LogNumbers(logger, 3, 2);
  EXPECT_EQ(left(), 0);
  EXPECT_EQ(ReadLines(logs_ / "x.28.log"),
            std::vector<std::string>{"00000000000000000010"});
  EXPECT_EQ(ReadMessages(logs_ / "x.1.log"), Numbers(3, 1));
}

TEST_F(LogFileTest, LeavesTheFilesOfOtherLoggersAlone) {
  const std::vector<std::string> others{"xx.00000000000000000001-1.full",
                                        "x.00000000000000000001-1.full.gz",
                                        "x.y.full", "x.full", "y.log"};
  for (const std::string& other : others) {
    dir_.Write("logs/" + other, other);
  }
  LogNumbers(Open({1, 2}), 1, 5);
  for (const std::string& other : others) {
    EXPECT_TRUE(fs::exists(logs_ / other)) << other;
  }
  EXPECT_EQ(FilesIn(logs_).size(), others.size() + 3);
}

TEST_F(LogFileTest, GoesOnInANewFileWhenItWasRenamed) {
  Logger& logger = Open();
  LogNumbers(logger, 1, 20);
  fs::rename(log_, logs_ / "kept");
  LogNumbers(logger, 21, 20);
  EXPECT_EQ(ReadMessages(logs_ / "kept"), Numbers(1, 20));
  EXPECT_EQ(ReadMessages(log_), Numbers(21, 20));
}

TEST_F(LogFileTest, GoesOnInANewFileWhenItWasRemoved) {
  Logger& logger = Open();
  LogNumbers(logger, 1, 20);
  fs::remove(log_);
  LogNumbers(logger, 21, 20);
  EXPECT_EQ(ReadMessages(log_), Numbers(21, 20));
}

TEST_F(LogFileTest, GoesOnInTheFileThatWasPutInItsPlace) {
  Logger& logger = Open();
  Log(logger, "1");
  fs::rename(log_, logs_ / "kept");
  dir_.Write("logs/x.log", "theirs\n");
  Log(logger, "2");
  Log(logger, "3");
  const auto lines = ReadLines(log_);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], "theirs");
  EXPECT_EQ(MessageOf(lines[2]), "3");
}

TEST_F(LogFileTest, CountsTheLinesLostWhileTheDirectoryIsGone) {
  Logger& logger = Open();
  LogNumbers(logger, 1, 1);
  fs::remove_all(logs_);
  LogNumbers(logger, 2, 5);
  EXPECT_FALSE(fs::exists(logs_));
  fs::create_directory(logs_);
  LogNumbers(logger, 7, 2);
  EXPECT_EQ(ReadMessages(log_), (Messages{LostReport(5, ENOENT), "7", "8"}));
}

TEST_F(LogFileTest, ReportsTheLinesThatForkedCopiesLost) {
  Logger& logger = Open();
  fs::remove_all(logs_);
  LogNumbers(logger, 1, 2);
  EXPECT_TRUE(CopyEndsWell([&] { LogNumbers(logger, 3, 3); }));
  fs::create_directory(logs_);
  // The copy is made while the loss is unreported; only one may report it.
  EXPECT_TRUE(CopyEndsWell([&] { LogNumbers(logger, 6, 1); }));
  LogNumbers(logger, 7, 1);
  EXPECT_EQ(ReadMessages(log_), (Messages{LostReport(5, ENOENT), "6", "7"}));
}

TEST_F(LogFileTest, ReportsLostLinesWhateverTheThreshold) {
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

TEST_F(LogFileTest, DoesNotWaitForTheLockOfARotation) {
  const int lock = open(logs_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  Logger& logger = Open({1, 5});
  LogNumbers(logger, 1, 4);
  EXPECT_EQ(ReadMessages(log_), Numbers(4, 1));
  EXPECT_FALSE(fs::exists(logs_ / "x.1.log"));
  // Numbered, in their order, by the first rotation that gets the lock.
  close(lock);
  LogNumbers(logger, 5, 1);
  EXPECT_EQ(FilesIn(logs_).size(), 5U);
  for (int number = 1; number <= 4; ++number) {
    const auto file = logs_ / ("x." + std::to_string(number) + ".log");
    EXPECT_EQ(ReadMessages(file), Numbers(5 - number, 1));
  }
}

TEST_F(LogFileTest, OverrunsItsLimitWhereItCannotBeRotated) {
  REQUIRE_SANDBOX();
  EXPECT_TRUE(CopyEndsWell([&] {
    Logger& logger = Open({1, 5});
    ASSERT_EQ(chmod(logs_.c_str(), 0500), 0);
    DropPrivileges();
    LogNumbers(logger, 1, 5);
    EXPECT_EQ(ReadMessages(log_), Numbers(1, 5));
  }));
}

TEST_F(LogFileTest, KeepsOffTheStandardStreamsAndClosesOnExec) {
  EXPECT_TRUE(CopyEndsWell([&] {
    for (int number = 0; number < kManyDescriptors; ++number) {
      close(number);
    }
    Logger& logger = Open({1, 5});
    LogNumbers(logger, 1, 5);
    for (int number = 0; number < kManyDescriptors; ++number) {
      const int flags = fcntl(number, F_GETFD);
      if (number < kAboveStandardStreams) {
        EXPECT_EQ(flags, -1) << number;
      } else {
        EXPECT_TRUE(flags == -1 || flags == FD_CLOEXEC) << number;
      }
    }
  }));
}

TEST_F(LogFileTest, HoldsOneDescriptorHoweverManyRotations) {
  Logger& logger = Open({1, 3});
  const int before = OpenDescriptors();
  LogNumbers(logger, 1, 200);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(LogFileTest, DoesNotWaitForThePipeThatWasPutInItsPlace) {
  Logger& logger = Open();
  fs::remove(log_);
  ASSERT_EQ(mkfifo(log_.c_str(), 0600), 0);
  EXPECT_TRUE(CopyEndsWell([&] { LogNumbers(logger, 1, 10'000); }));
}

TEST_F(LogFileTest, SurvivesTheFileSizeLimit) {
  EXPECT_TRUE(CopyEndsWell([&] {
    SurviveFileSizeLimit();
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit unlimited = limit;
    Logger& logger = Open();
    Log(logger, "fits");
    limit.rlim_cur = fs::file_size(log_) + 10;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    LogNumbers(logger, 1, 5);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &unlimited), 0);
    Log(logger, "again");
    const auto lines = ReadLines(log_);
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(MessageOf(lines[0]), "fits");
    EXPECT_EQ(lines[1].size(), 9U) << "the part that was written, ended";
    EXPECT_EQ(MessageOf(lines[2]), LostReport(5, EFBIG));
    EXPECT_EQ(MessageOf(lines[3]), "again");
  }));
}

TEST(Rotation, IsNotWithoutTheDirectory) {
  EXPECT_FALSE(Rotation("/nonexistent", "x", 5).Rotate({}));
}

}  // namespace
