#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <filesystem>
#include <regex>
#include <string>

#include "environment/LoggerLibrary.h"
#include "tests/support/AnotherUser.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/LogReader.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;

mode_t Mode(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777U;
}

class EntryPoints : public testing::Test {
 protected:
  TempDir dir_;
  const fs::path logs_ = dir_.Path() / "a" / "b" / "logs";
  // Never valid, so that a test sees whether the result is left alone.
  ILog* const untouched_ = reinterpret_cast<ILog*>(&dir_);
  ILog* log_ = untouched_;
};

// Must come first: no directory has been prepared yet.
TEST_F(EntryPoints, MakeNoLoggerWithoutADirectory) {
  EXPECT_EQ(
      GetLogger(kLoggerInterfaceVersion, "launcher", LOGLEVEL_DEBUG, &log_),
      ENOENT);
  EXPECT_EQ(log_, untouched_);
}

TEST_F(EntryPoints, WriteALine) {
  ASSERT_EQ(InitLogger(logs_.c_str()), 0);
  ASSERT_EQ(
      GetLogger(kLoggerInterfaceVersion, "launcher", LOGLEVEL_DEBUG, &log_), 0);
  log_->Log(LOGLEVEL_ERROR, "[LAUNCHER  ] %s", "hello");
  const std::string ids =
      std::to_string(getpid()) + ":" + std::to_string(getpid());
  const std::regex expected(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z ERROR )" +
                            ids + R"( \[LAUNCHER  \] hello\n)");
  const std::string text = ReadFile(logs_ / "launcher.log");
  EXPECT_TRUE(std::regex_match(text, expected)) << text;
}

// Callers that other compilers have built go through the table.
TEST_F(EntryPoints, HaveLogVInTheThirdSlot) {
  using LogV = void (*)(ILog*, LOGLEVEL, const char*, va_list);
  ASSERT_EQ(InitLogger(logs_.c_str()), 0);
  ASSERT_EQ(
      GetLogger(kLoggerInterfaceVersion, "launcher", LOGLEVEL_DEBUG, &log_), 0);
  const auto* const table = *reinterpret_cast<LogV**>(log_);
  const auto call = [&](const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    table[2](log_, LOGLEVEL_ERROR, format, arguments);
    va_end(arguments);
  };
  call("by the slot %d", 3);
  EXPECT_EQ(ReadMessages(logs_ / "launcher.log"),
            std::vector<std::string>{"by the slot 3"});
}

TEST_F(EntryPoints, MakeTheDirectoryAndItsParentsForTheUserAlone) {
  ASSERT_EQ(InitLogger(logs_.c_str()), 0);
  EXPECT_EQ(Mode(logs_), 0700U);
  EXPECT_EQ(Mode(logs_.parent_path()), 0700U);
  EXPECT_EQ(Mode(logs_.parent_path().parent_path()), 0700U);
  EXPECT_TRUE(fs::is_empty(logs_));
}

TEST_F(EntryPoints, MakeTheFileForTheUserAlone) {
  ASSERT_EQ(InitLogger(logs_.c_str()), 0);
  const mode_t before = umask(0);
  EXPECT_EQ(
      GetLogger(kLoggerInterfaceVersion, "launcher", LOGLEVEL_DEBUG, &log_), 0);
  umask(before);
  EXPECT_EQ(Mode(logs_ / "launcher.log"), 0600U);
}

TEST_F(EntryPoints, LeaveTheModeOfAnExistingDirectoryAlone) {
  fs::create_directories(logs_);
  ASSERT_EQ(chmod(logs_.c_str(), 0751), 0);
  ASSERT_EQ(InitLogger(logs_.c_str()), 0);
  EXPECT_EQ(Mode(logs_), 0751U);
}

TEST_F(EntryPoints, AcceptPathsWithDoubledAndTrailingSlashes) {
  const std::string path = dir_.Path().string() + "//a///b//";
  EXPECT_EQ(InitLogger(path.c_str()), 0);
  EXPECT_TRUE(fs::is_directory(dir_.Path() / "a" / "b"));
}

TEST_F(EntryPoints, SayWhyTheDirectoryCannotBeUsed) {
  dir_.Write("file", "");
  EXPECT_EQ(InitLogger((dir_.Path() / "file").c_str()), ENOTDIR);
  EXPECT_EQ(InitLogger((dir_.Path() / "file" / "logs").c_str()), ENOTDIR);
  EXPECT_EQ(InitLogger(nullptr), EINVAL);
  EXPECT_EQ(InitLogger(""), EINVAL);
  const std::string long_name(300, 'x');
  EXPECT_EQ(InitLogger((dir_.Path() / long_name).c_str()), ENAMETOOLONG);
}

// The error must be the parent's, not the ENOENT of the directory itself.
TEST_F(EntryPoints, SayWhyAParentOfTheDirectoryCannotBeMade) {
  EXPECT_EQ(InitLogger("/proc/none/logs"), ENOENT);
  REQUIRE_ANOTHER_USER();
  EXPECT_EQ(InForkedChild([&] {
              chmod(dir_.Path().c_str(), 0755);
              chmod(dir_.Path().parent_path().c_str(), 01777);
              if (setuid(kAnotherUser) != 0) return -1;
              return InitLogger(logs_.c_str());
            }),
            EACCES);
}

TEST_F(EntryPoints, RefuseUnusableArgumentsAndMakeNothing) {
  ASSERT_EQ(InitLogger(logs_.c_str()), 0);
  for (const int version : {-2, 0, 1, 3, 4, 17}) {
    EXPECT_EQ(GetLogger(version, "x", LOGLEVEL_DEBUG, &log_), ENOTSUP);
  }
  EXPECT_EQ(GetLogger(kLoggerInterfaceVersion, nullptr, LOGLEVEL_DEBUG, &log_),
            EINVAL);
  EXPECT_EQ(GetLogger(kLoggerInterfaceVersion, "", LOGLEVEL_DEBUG, &log_),
            EINVAL);
  EXPECT_EQ(GetLogger(kLoggerInterfaceVersion, "a/b", LOGLEVEL_DEBUG, &log_),
            EINVAL);
  EXPECT_EQ(GetLogger(kLoggerInterfaceVersion, "/", LOGLEVEL_DEBUG, &log_),
            EINVAL);
  EXPECT_EQ(GetLogger(kLoggerInterfaceVersion, "x", LOGLEVEL_DEBUG, nullptr),
            EINVAL);
  EXPECT_EQ(GetLogger(kLoggerInterfaceVersion, std::string(201, 'x').c_str(),
                      LOGLEVEL_DEBUG, &log_),
            ENAMETOOLONG);
  EXPECT_EQ(log_, untouched_);
  EXPECT_TRUE(fs::is_empty(logs_));
}

TEST_F(EntryPoints, RefuseARelativePathInARemovedWorkingDirectory) {
  EXPECT_EQ(InForkedChild([&] {
              fs::create_directories(logs_);
              fs::current_path(logs_);
              fs::remove(logs_);
              return InitLogger("logs") == ENOENT ? 0 : 1;
            }),
            0);
}

TEST_F(EntryPoints, SayWhyTheLogCannotBeOpened) {
  ASSERT_EQ(InitLogger(logs_.c_str()), 0);
  fs::create_directory(logs_ / "launcher.log");
  EXPECT_EQ(
      GetLogger(kLoggerInterfaceVersion, "launcher", LOGLEVEL_DEBUG, &log_),
      EISDIR);
  EXPECT_EQ(log_, untouched_);
}

TEST_F(EntryPoints, RotateUnderTheLongestName) {
  ASSERT_EQ(InitLogger(logs_.c_str()), 0);
  const std::string name(200, 'x');
  ASSERT_EQ(
      GetLogger(kLoggerInterfaceVersion, name.c_str(), LOGLEVEL_DEBUG, &log_),
      0);
  const std::string text(1'000'000, 'x');
  for (int i = 0; i < 12; ++i) {
    log_->LogText(LOGLEVEL_ERROR, text.c_str());
  }
  EXPECT_TRUE(fs::exists(logs_ / (name + ".1.log")));
}

TEST_F(EntryPoints, ReportAFileSizeLimitOfZero) {
  EXPECT_EQ(InForkedChild([&] {
              constexpr rlimit kNothing{0, 0};
              setrlimit(RLIMIT_FSIZE, &kNothing);
              return InitLogger(logs_.c_str()) == EFBIG ? 0 : 1;
            }),
            0);
}

// Earlier tests may have changed the disposition.
class FileSizeSignal : public EntryPoints {
 protected:
  FileSizeSignal() { std::signal(SIGXFSZ, SIG_DFL); }
};

TEST_F(FileSizeSignal, NoLongerEndsTheProcess) {
  EXPECT_EQ(InForkedChild([] { return raise(SIGXFSZ); }), -SIGXFSZ);
  EXPECT_EQ(InForkedChild([&] {
              InitLogger(logs_.c_str());
              return raise(SIGXFSZ);
            }),
            0);
}

TEST_F(FileSizeSignal, HasItsDefaultInAProgramThatIsExecuted) {
  EXPECT_EQ(InForkedChild([&] {
              InitLogger(logs_.c_str());
              return execl("/bin/sh", "sh", "-c", "kill -s XFSZ $$", nullptr);
            }),
            -SIGXFSZ);
}

TEST_F(FileSizeSignal, RestartsTheCallsThatItInterrupts) {
  EXPECT_EQ(InForkedChild([&] {
              InitLogger(logs_.c_str());
              struct sigaction present {};
              sigaction(SIGXFSZ, nullptr, &present);
              return (present.sa_flags & SA_RESTART) != 0 ? 0 : 1;
            }),
            0);
}

TEST_F(FileSizeSignal, StaysIgnored) {
  EXPECT_EQ(InForkedChild([&] {
              std::signal(SIGXFSZ, SIG_IGN);
              InitLogger(logs_.c_str());
              return std::signal(SIGXFSZ, SIG_DFL) == SIG_IGN ? 0 : 1;
            }),
            0);
}

TEST_F(FileSizeSignal, KeepsAHandler) {
  EXPECT_EQ(InForkedChild([&] {
              struct sigaction theirs {};
              theirs.sa_flags = SA_SIGINFO;
              theirs.sa_sigaction = [](int, siginfo_t*, void*) {};
              sigaction(SIGXFSZ, &theirs, nullptr);
              InitLogger(logs_.c_str());
              struct sigaction present {};
              sigaction(SIGXFSZ, nullptr, &present);
              return present.sa_sigaction == theirs.sa_sigaction ? 0 : 1;
            }),
            0);
}

TEST_F(EntryPoints, KeepTheDirectoryWhenTheWorkingDirectoryChanges) {
  const fs::path before = fs::current_path();
  fs::current_path(dir_.Path());
  EXPECT_EQ(InitLogger("logs"), 0);
  fs::current_path(before);
  ASSERT_EQ(
      GetLogger(kLoggerInterfaceVersion, "launcher", LOGLEVEL_DEBUG, &log_), 0);
  EXPECT_TRUE(fs::exists(dir_.Path() / "logs" / "launcher.log"));
}

}  // namespace
