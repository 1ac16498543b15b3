#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "logger/Rotation.h"

#ifdef __linux__
#include <linux/capability.h>
#include <sys/syscall.h>
#endif

#include "tests/support/Files.h"
#include "tests/support/LoggerFixture.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = std::filesystem;

int OpenDescriptors() {
  constexpr int kManyDescriptors = 100;
  int count = 0;
  for (int number = 0; number < kManyDescriptors; ++number) {
    count += fcntl(number, F_GETFD) >= 0 ? 1 : 0;
  }
  return count;
}

// Drops all capabilities, so that file modes restrict even root.
void DropPrivileges() {
#ifdef __linux__
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  EXPECT_EQ(syscall(SYS_capset, &header, none.data()), 0);
#endif
}

class RotationTest : public LoggerFixture {
 protected:
  // The number of files set aside that have no number yet.
  std::ptrdiff_t Aside() const {
    return std::ranges::count_if(FilesIn(logs_), [](const fs::path& file) {
      return fs::is_regular_file(file) && file.extension() == kAsideSuffix;
    });
  }
};

TEST_F(RotationTest, KeepsTheGivenNumberOfOldFilesAndNoOthers) {
  LogNumbers(Open({1, 3}), 1, 8);
  EXPECT_EQ(FilesIn(logs_),
            (std::vector<fs::path>{Old(1), Old(2), Old(3), log_}));
  EXPECT_EQ(ReadMessages(Old(3)), Numbers(5, 1));
  EXPECT_EQ(ReadMessages(Old(2)), Numbers(6, 1));
  EXPECT_EQ(ReadMessages(Old(1)), Numbers(7, 1));
  EXPECT_EQ(ReadMessages(log_), Numbers(8, 1));
}

TEST_F(RotationTest, HappensAtTenMebibytesWithFiveOldFiles) {
  Logger& logger = Open();
  const std::string text(1'000'000, 'x');
  for (int i = 0; i < 100; ++i) {
    Log(logger, text);
  }
  constexpr std::size_t kTenMebibytes = 10'485'760;
  EXPECT_EQ(FilesIn(logs_).size(), 6U);
  for (int number = 1; number <= 5; ++number) {
    const auto file = Old(number);
    EXPECT_GE(fs::file_size(file), kTenMebibytes);
    EXPECT_LT(fs::file_size(file), kTenMebibytes + text.size() + 100);
  }
}

TEST_F(RotationTest, FollowsTheRotationOfAnotherLauncher) {
  const auto line = static_cast<off_t>(LineBytes());
  const LogLimits limits{2 * line, 5};
  Logger& one = Open(limits);
  Logger& other = Open(limits);
  Logger* const writers[] = {&one, &other, &one, &other, &other, &one};
  int number = 0;
  for (Logger* const writer : writers) {
    OutlastLook();
    LogNumbers(*writer, ++number, 1);
  }
  EXPECT_EQ(ReadMessages(Old(2)), Numbers(1, 2));
  EXPECT_EQ(ReadMessages(Old(1)), Numbers(3, 2));
  EXPECT_EQ(ReadMessages(log_), Numbers(5, 2));
}

TEST_F(RotationTest, FillsTheGapThatARemovedOldFileLeaves) {
  Logger& logger = Open({1, 5});
  LogNumbers(logger, 1, 4);
  fs::remove(Old(2));
  LogNumbers(logger, 5, 1);
  EXPECT_EQ(ReadMessages(Old(3)), Numbers(1, 1));
  EXPECT_EQ(ReadMessages(Old(2)), Numbers(3, 1));
  EXPECT_EQ(ReadMessages(Old(1)), Numbers(4, 1));
}

TEST_F(RotationTest, NumbersABacklogAFewFilesAtATime) {
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
  EXPECT_EQ(ReadMessages(Old(1)), Numbers(3, 1));
}

TEST_F(RotationTest, LeavesTheFilesOfOtherLoggersAlone) {
  const std::vector<std::string> others{"xx.00000000000000000001-1.full",
                                        "x.00000000000000000001-1.full.gz",
                                        "x.2026-11-21.full",
                                        "x.1.full",
                                        "x.1-.full",
                                        "x.-1.full",
                                        "x..full",
                                        "x.y.full",
                                        "x.full",
                                        "y.log"};
  for (const std::string& other : others) {
    dir_.Write("logs/" + other, other);
  }
  LogNumbers(Open({1, 2}), 1, 5);
  for (const std::string& other : others) {
    EXPECT_TRUE(fs::exists(logs_ / other)) << other;
  }
  EXPECT_EQ(FilesIn(logs_).size(), others.size() + 3);
}

TEST_F(RotationTest, LeavesAloneAFileWhoseSuffixOverlapsTheLogsName) {
  dir_.Write("logs/y.full", "theirs");
  Logger logger(logs_, "y.f", LOGLEVEL_DEBUG, {1, 1});
  ASSERT_EQ(logger.Open(), 0);
  LogNumbers(logger, 1, 3);
  EXPECT_EQ(ReadFile(logs_ / "y.full"), "theirs");
}

TEST_F(RotationTest, DoesNotWaitForTheLockOfARotation) {
  std::optional<HeldLock> lock(logs_);
  Logger& logger = Open({1, 5});
  LogNumbers(logger, 1, 4);
  EXPECT_EQ(ReadMessages(log_), Numbers(4, 1));
  EXPECT_FALSE(fs::exists(Old(1)));
  // Once a rotation gets the lock, it numbers the files set aside, the oldest
  // first.
  lock.reset();
  LogNumbers(logger, 5, 1);
  EXPECT_EQ(FilesIn(logs_).size(), 5U);
  for (int number = 1; number <= 4; ++number) {
    const auto file = Old(number);
    EXPECT_EQ(ReadMessages(file), Numbers(5 - number, 1));
  }
}

TEST_F(RotationTest, LetsTheFileExceedItsLimitWhereItCannotBeRenamed) {
  REQUIRE_SANDBOX();
  EXPECT_TRUE(PassesInForkedChild([&] {
    Logger& logger = Open({1, 5});
    ASSERT_EQ(chmod(logs_.c_str(), 0500), 0);
    DropPrivileges();
    LogNumbers(logger, 1, 5);
    EXPECT_EQ(ReadMessages(log_), Numbers(1, 5));
  }));
}

TEST_F(RotationTest, HoldsOneDescriptorHoweverManyRotations) {
  Logger& logger = Open({1, 3});
  const auto before = OpenDescriptors();
  LogNumbers(logger, 1, 200);
  EXPECT_EQ(OpenDescriptors(), before);
}

// A file that cannot be renamed or removed: it is a mount point.
class Immovable {
 public:
  explicit Immovable(const fs::path& path) : path_(path) {
#ifdef __linux__
    EXPECT_EQ(mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0);
#endif
  }
  ~Immovable() {
#ifdef __linux__
    umount2(path_.c_str(), MNT_DETACH);
#endif
  }
  Immovable(const Immovable&) = delete;
  Immovable& operator=(const Immovable&) = delete;

 private:
  const fs::path path_;
};

class ObstacleTest : public RotationTest {
 protected:
  static constexpr int kOldFiles = 3;

  // Logs far more lines than are kept, each of which fills a file. Expects the
  // latest lines in no more files than the limit allows.
  void LogAndExpectABound(Logger& logger) {
    constexpr int kLines = 40;
    for (int line = 1; line <= kLines; ++line) {
      LogNumbers(logger, line, 1);
      ASSERT_LE(Lines().size(), kOldFiles + 2U) << line;
    }
    EXPECT_EQ(ReadMessages(log_), Numbers(kLines, 1));
    EXPECT_GE(std::ranges::count(Lines(), std::to_string(kLines - 1)), 1);
  }

  // The messages in the regular files of the directory.
  Messages Lines() const {
    Messages lines;
    for (const fs::path& file : FilesIn(logs_)) {
      if (fs::is_regular_file(file)) {
        const Messages messages = ReadMessagesAndFragments(file);
        lines.insert(lines.end(), messages.begin(), messages.end());
      }
    }
    return lines;
  }

  Logger& OpenSmall() { return Open({1, kOldFiles}); }
};

TEST_F(ObstacleTest, SkipsADirectoryWithANumberedName) {
  for (int number = 1; number <= kOldFiles; ++number) {
    fs::create_directory(Old(number));
    LogAndExpectABound(OpenSmall());
    EXPECT_TRUE(fs::is_directory(Old(number)));
    EXPECT_EQ(Aside(), 0);
    for (const fs::path& file : FilesIn(logs_)) {
      fs::remove(file);
    }
  }
}

TEST_F(ObstacleTest, NumbersNoFileWhileDirectoriesHaveAllNumberedNames) {
  for (int number = 1; number <= kOldFiles; ++number) {
    fs::create_directory(Old(number));
  }
  LogAndExpectABound(OpenSmall());
  EXPECT_EQ(Aside(), kOldFiles + 1);
  EXPECT_EQ(Lines(), Numbers(36, 5));
}

TEST_F(ObstacleTest, KeepsTheOrderAroundADirectoryWithANumberedName) {
  fs::create_directory(Old(2));
  LogNumbers(OpenSmall(), 1, 6);
  EXPECT_EQ(ReadMessages(Old(3)), Numbers(4, 1));
  EXPECT_EQ(ReadMessages(Old(1)), Numbers(5, 1));
  EXPECT_EQ(ReadMessages(log_), Numbers(6, 1));
}

TEST_F(ObstacleTest, SkipsADirectoryWithTheNameOfAFileSetAside) {
  fs::create_directory(logs_ / "x.0-0.full");
  LogAndExpectABound(OpenSmall());
  EXPECT_TRUE(fs::is_directory(logs_ / "x.0-0.full"));
  EXPECT_EQ(Aside(), 0);
  EXPECT_EQ(Lines(), (Messages{"39", "38", "37", "40"}));
}

TEST_F(ObstacleTest, SkipsAFileThatCannotBeRenamed) {
  REQUIRE_SANDBOX();
  for (int number = 1; number <= kOldFiles; ++number) {
    dir_.Write(fs::relative(Old(number), dir_.Path()), "theirs\n");
    const Immovable file(Old(number));
    LogAndExpectABound(OpenSmall());
    EXPECT_EQ(ReadLines(Old(number)), Messages{"theirs"});
    EXPECT_EQ(Aside(), 0);
    for (const fs::path& old : FilesIn(logs_)) {
      if (old != Old(number)) {
        fs::remove(old);
      }
    }
  }
}

TEST_F(ObstacleTest, SkipsAFileSetAsideThatCannotBeRenamed) {
  REQUIRE_SANDBOX();
  const fs::path aside = logs_ / "x.0-0.full";
  dir_.Write("logs/x.0-0.full", "theirs\n");
  const Immovable file(aside);
  LogAndExpectABound(OpenSmall());
  EXPECT_TRUE(fs::exists(aside));
  EXPECT_EQ(Aside(), 1);
}

TEST_F(ObstacleTest, DoesNotWaitForALockThatIsHeldForEver) {
  std::optional<HeldLock> lock(logs_);
  Logger& logger = OpenSmall();
  LogAndExpectABound(logger);
  EXPECT_EQ(Aside(), kOldFiles + 1);
  lock.reset();
  LogNumbers(logger, 41, 1);
  EXPECT_EQ(Lines(), (Messages{"40", "39", "38", "41"}));
}

TEST_F(ObstacleTest, RemovesTheOldestNumberedFilesFirstWhileTheLockIsHeld) {
  Logger& logger = OpenSmall();
  LogNumbers(logger, 1, 4);
  const HeldLock lock(logs_);
  LogNumbers(logger, 5, 2);
  Messages lines = Lines();
  std::sort(lines.begin(), lines.end());
  EXPECT_EQ(lines, Numbers(2, 5));
  LogAndExpectABound(logger);
}

TEST_F(ObstacleTest, SkipsAFileThatCannotBeRemovedWhileTheLockIsHeld) {
  REQUIRE_SANDBOX();
  dir_.Write(fs::relative(Old(kOldFiles), dir_.Path()), "theirs\n");
  const Immovable file(Old(kOldFiles));
  const HeldLock lock(logs_);
  LogAndExpectABound(OpenSmall());
}

TEST_F(ObstacleTest, LeavesUnrelatedFilesWithSimilarNamesAlone) {
  const std::vector<std::string> others{"x.0.log",  "x.01.log", "x.4.log",
                                        "x.-1.log", "x.1.logs", "x.1log",
                                        "x1.log",   "x..log",   "x.1.2.log"};
  for (const std::string& other : others) {
    dir_.Write("logs/" + other, "theirs\n");
  }
  Logger& logger = OpenSmall();
  LogNumbers(logger, 1, 20);
  EXPECT_EQ(FilesIn(logs_).size(), others.size() + kOldFiles + 1);
  for (const std::string& other : others) {
    EXPECT_EQ(ReadLines(logs_ / other), Messages{"theirs"}) << other;
  }
}

TEST_F(RotationTest, RenamesNothingWhenTheFullFileIsNoLongerAtThePath) {
  LogNumbers(Open(), 1, 1);
  const auto state = StateAt(AT_FDCWD, log_.c_str());
  fs::rename(log_, logs_ / "kept");
  dir_.Write("logs/x.log", "another\n");
  ASSERT_TRUE(state);
  EXPECT_TRUE(Rotation(logs_, "x", 5).Rotate(*state));
  EXPECT_EQ(ReadLines(log_), Messages{"another"});
  EXPECT_EQ(FilesIn(logs_).size(), 2U);
}

TEST_F(RotationTest, FailsWithoutTheDirectory) {
  EXPECT_FALSE(Rotation("/nonexistent", "x", 5).Rotate({}));
}

}  // namespace
