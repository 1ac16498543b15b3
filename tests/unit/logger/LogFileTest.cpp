#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "logger/LogFile.h"
#include "tests/support/AnotherUser.h"
#include "tests/support/Files.h"
#include "tests/support/LoggerFixture.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = std::filesystem;

using LogFileTest = LoggerFixture;

TEST_F(LogFileTest, AppendsToAnExistingFile) {
  Log(Open(), "first");
  Log(Open(), "second");
  EXPECT_EQ(ReadMessages(log_), (Messages{"first", "second"}));
}

TEST_F(LogFileTest, EndsTheFragmentThatADeadWriterLeft) {
  dir_.Write("logs/x.log", "2026-11-21T06:2");
  Logger& logger = Open();
  Log(logger, "first");
  Log(logger, "second");
  EXPECT_EQ(ReadMessagesAndFragments(log_),
            (Messages{"2026-11-21T06:2", "first", "second"}));
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

TEST_F(LogFileTest, MakesNewFilesForTheUserAlone) {
  const mode_t before = umask(0);
  LogNumbers(Open({1, 3}), 1, 3);
  umask(before);
  for (const fs::path& file : FilesIn(logs_)) {
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600)) << file;
  }
}

TEST_F(LogFileTest, GoesOnInANewFileWhenItWasRenamed) {
  Logger& logger = Open();
  LogNumbers(logger, 1, 20);
  fs::rename(log_, logs_ / "kept");
  OutlastLook();
  LogNumbers(logger, 21, 20);
  EXPECT_EQ(ReadMessages(logs_ / "kept"), Numbers(1, 20));
  EXPECT_EQ(ReadMessages(log_), Numbers(21, 20));
}

TEST_F(LogFileTest, GoesOnInANewFileWhenItWasRemoved) {
  Logger& logger = Open();
  LogNumbers(logger, 1, 20);
  fs::remove(log_);
  OutlastLook();
  LogNumbers(logger, 21, 20);
  EXPECT_EQ(ReadMessages(log_), Numbers(21, 20));
}

TEST_F(LogFileTest, GoesOnInTheFileThatWasPutInItsPlace) {
  Logger& logger = Open();
  Log(logger, "1");
  fs::rename(log_, logs_ / "kept");
  dir_.Write("logs/x.log", "theirs\n");
  OutlastLook();
  Log(logger, "2");
  Log(logger, "3");
  EXPECT_EQ(ReadMessagesAndFragments(log_), (Messages{"theirs", "2", "3"}));
}

TEST_F(LogFileTest, AvoidsTheStandardStreamsAndClosesOnExec) {
  constexpr int kManyDescriptors = 100;
  for (int first = 0; first <= STDERR_FILENO + 1; ++first) {
    EXPECT_TRUE(PassesInForkedChild([&] {
      for (int number = first; number < kManyDescriptors; ++number) {
        close(number);
      }
      Logger& logger = Open({1, 5});
      LogNumbers(logger, 1, 5);
      for (int number = first; number < kManyDescriptors; ++number) {
        const int flags = fcntl(number, F_GETFD);
        if (number <= STDERR_FILENO) {
          EXPECT_EQ(flags, -1) << number;
        } else {
          EXPECT_TRUE(flags == -1 || flags == FD_CLOEXEC) << number;
        }
      }
    })) << first;
  }
}

TEST_F(LogFileTest, EndsAFragmentOfOneByte) {
  dir_.Write("logs/x.log", "2");
  LogNumbers(Open(), 1, 1);
  EXPECT_EQ(ReadMessagesAndFragments(log_), (Messages{"2", "1"}));
}

TEST_F(LogFileTest, EndsAFragmentThatAppearsWhileItIsOpen) {
  Logger& logger = Open();
  LogNumbers(logger, 1, 3);
  std::ofstream(log_, std::ios::app) << "2026-11-21T06:2";
  OutlastLook();
  LogNumbers(logger, 4, 2);
  EXPECT_EQ(ReadMessagesAndFragments(log_),
            (Messages{"1", "2", "3", "2026-11-21T06:2", "4", "5"}));
}

TEST_F(LogFileTest, EndsAFragmentInAFileThatTookItsPlace) {
  Logger& logger = Open();
  LogNumbers(logger, 1, 1);
  const std::string fragment(LineBytes(), '.');
  fs::remove(log_);
  dir_.Write("logs/x.log", fragment);
  OutlastLook();
  LogNumbers(logger, 2, 1);
  EXPECT_EQ(ReadMessagesAndFragments(log_), (Messages{fragment, "2"}));
}

TEST_F(LogFileTest, WritesNoLineToAPipeInItsPlace) {
  Logger& logger = Open();
  fs::remove(log_);
  ASSERT_EQ(mkfifo(log_.c_str(), 0600), 0);
  const int pipe = open(log_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_TRUE(PassesInForkedChild([&] { LogNumbers(logger, 1, 10'000); }));
  char byte = 0;
  EXPECT_LE(read(pipe, &byte, 1), 0);
  close(pipe);
  fs::remove(log_);
  LogNumbers(logger, 1, 1);
  EXPECT_EQ(ReadMessages(log_), (Messages{LostReport(10'000, EPERM), "1"}));
}

// Uses up the free descriptors in a forked child.
class NoDescriptorTest : public LoggerFixture {
 protected:
  static void UseUpDescriptors(int left) {
    constexpr rlimit kFew{64, 64};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &kFew), 0);
    int last = -1;
    for (int number = 0; number >= 0; number = dup(0)) {
      last = number;
    }
    for (; left > 0; --left) {
      close(last--);
    }
  }
};

TEST_F(NoDescriptorTest, LosesNoLineWhenTheFileIsFull) {
  const auto limit = static_cast<off_t>(2 * LineBytes());
  for (int left = 0; left <= 3; ++left) {
    EXPECT_TRUE(PassesInForkedChild([&] {
      Logger& logger = Open({limit, 50});
      UseUpDescriptors(left);
      LogNumbers(logger, 1, 20);
    }));
    Messages messages;
    for (const fs::path& file : FilesIn(logs_)) {
      for (std::string& message : ReadMessages(file)) {
        messages.push_back(std::move(message));
      }
      fs::remove(file);
    }
    std::sort(messages.begin(), messages.end(),
              [](const std::string& a, const std::string& b) {
                return std::stoi(a) < std::stoi(b);
              });
    EXPECT_EQ(messages, Numbers(1, 20)) << left;
  }
}

TEST_F(NoDescriptorTest, KeepsToTheLimitOnOldFiles) {
  const auto limit = static_cast<off_t>(2 * LineBytes());
  constexpr int kOldFiles = 2;
  for (int left = 0; left <= 3; ++left) {
    EXPECT_TRUE(PassesInForkedChild([&] {
      Logger& logger = Open({limit, kOldFiles});
      UseUpDescriptors(left);
      LogNumbers(logger, 1, 40);
    }));
    EXPECT_LE(FilesIn(logs_).size(), kOldFiles + 2U) << left;
  }
}

TEST_F(NoDescriptorTest, RotatesOnceThereAreDescriptors) {
  EXPECT_TRUE(PassesInForkedChild([&] {
    const std::size_t line = LineBytes();
    Logger& logger = Open({static_cast<off_t>(2 * line), 5});
    UseUpDescriptors(0);
    LogNumbers(logger, 1, 5);
    EXPECT_EQ(fs::file_size(log_), 5 * line);
    for (int number = 40; number < 50; ++number) {
      close(number);
    }
    LogNumbers(logger, 6, 1);
    EXPECT_EQ(ReadMessages(Old(1)), Numbers(1, 5));
    EXPECT_EQ(ReadMessages(log_), Numbers(6, 1));
  }));
}

TEST_F(NoDescriptorTest, LosesAndCountsLinesAfterTheFileIsRemoved) {
  EXPECT_TRUE(PassesInForkedChild([&] {
    Logger& logger = Open();
    UseUpDescriptors(0);
    fs::remove(log_);
    LogNumbers(logger, 1, 5);
    for (int number = 40; number < 50; ++number) {
      close(number);
    }
    LogNumbers(logger, 6, 1);
    EXPECT_EQ(ReadMessages(log_), (Messages{LostReport(5, EMFILE), "6"}));
  }));
}

class FileSizeLimitTest : public LoggerFixture {
 protected:
  // The limit is the whole process's, so only forked children set it.
  static void SetLimit(rlim_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
};

TEST_F(FileSizeLimitTest, RotatesAFileThatHasReachedIt) {
  EXPECT_TRUE(PassesInForkedChild([&] {
    SetLimit(2 * LineBytes());
    LogNumbers(Open(), 1, 5);
    EXPECT_EQ(ReadMessages(Old(2)), Numbers(1, 2));
    EXPECT_EQ(ReadMessages(Old(1)), Numbers(3, 2));
    EXPECT_EQ(ReadMessages(log_), Numbers(5, 1));
  }));
}

TEST_F(FileSizeLimitTest, CutsNoLineThatWouldExceedIt) {
  EXPECT_TRUE(PassesInForkedChild([&] {
    SetLimit(2 * LineBytes() - 1);
    LogNumbers(Open(), 1, 3);
    EXPECT_EQ(ReadMessages(Old(2)), Numbers(1, 1));
    EXPECT_EQ(ReadMessages(Old(1)), Numbers(2, 1));
    EXPECT_EQ(ReadMessages(log_), Numbers(3, 1));
  }));
}

TEST_F(FileSizeLimitTest, WritesALineOfExactlyTheLimit) {
  EXPECT_TRUE(PassesInForkedChild([&] {
    SetLimit(LineBytes());
    LogNumbers(Open(), 1, 2);
    EXPECT_EQ(ReadMessages(Old(1)), Numbers(1, 1));
    EXPECT_EQ(ReadMessages(log_), Numbers(2, 1));
  }));
}

TEST_F(FileSizeLimitTest, LosesNoLineWhenItIsLoweredLater) {
  EXPECT_TRUE(PassesInForkedChild([&] {
    Logger& logger = Open();
    const auto line = LineBytes();
    LogNumbers(logger, 1, 3);
    SetLimit(3 * line + 10);
    LogNumbers(logger, 4, 1);
    const auto lines = ReadLines(Old(1));
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[3].size(), 9U)
        << "the part that was written, with a line feed as its last byte";
    EXPECT_EQ(ReadMessages(log_), Numbers(4, 1));
    SetLimit(1'000'000);
    LogNumbers(logger, 5, 9);
    EXPECT_EQ(ReadMessages(log_).size(), 10U);
  }));
}

TEST_F(FileSizeLimitTest, LosesLinesThatNoFileCanHoldAndKeepsTheOldFiles) {
  EXPECT_TRUE(PassesInForkedChild([&] {
    Logger& logger = Open();
    LogNumbers(logger, 1, 3);
    SetLimit(10);
    LogNumbers(logger, 4, 5);
    EXPECT_EQ(FilesIn(logs_).size(), 1U);
    SetLimit(RLIM_INFINITY);
    LogNumbers(logger, 9, 1);
    EXPECT_EQ(ReadMessages(log_),
              (Messages{"1", "2", "3", LostReport(5, EFBIG), "9"}));
  }));
}

TEST_F(LogFileTest, LosesAndCountsLinesWhileItsPlaceIsTaken) {
  REQUIRE_SANDBOX();
  REQUIRE_ANOTHER_USER();
  Logger& logger = Open();
  LogNumbers(logger, 1, 1);
  fs::rename(log_, logs_ / "kept");
  fs::create_symlink("kept", log_);
  EXPECT_EQ(lchown(log_.c_str(), kAnotherUser, kAnotherUser), 0);
  OutlastLook();
  // Their link leads to the open file, so this line is not lost.
  Log(logger, "the file itself, reached by their link");
  EXPECT_EQ(ReadMessages(logs_ / "kept").size(), 2U);
  fs::remove(log_);
  dir_.Write("logs/x.log", "theirs\n");
  EXPECT_EQ(chown(log_.c_str(), kAnotherUser, kAnotherUser), 0);
  OutlastLook();
  LogNumbers(logger, 2, 2);
  EXPECT_EQ(ReadFile(log_), "theirs\n");
  fs::remove(log_);
  LogNumbers(logger, 4, 1);
  EXPECT_EQ(ReadMessages(log_), (Messages{LostReport(2, EPERM), "4"}));
}

TEST_F(LogFileTest, IsRefusedAtTheStartWhenItIsNotARegularFile) {
  fs::create_symlink("/dev/null", log_);
  Logger logger(logs_, "x", LOGLEVEL_DEBUG);
  EXPECT_EQ(logger.Open(), EPERM);
}

TEST_F(LogFileTest, FollowsTheUsersOwnLink) {
  fs::create_symlink(dir_.Path() / "target", log_);
  Logger& logger = Open();
  LogNumbers(logger, 1, 2);
  EXPECT_EQ(ReadMessages(dir_.Path() / "target"), Numbers(1, 2));
  EXPECT_TRUE(fs::is_symlink(log_));
}

}  // namespace
