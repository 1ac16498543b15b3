// The launcher, started in places where little works.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "environment/LogConfig.h"
#include "tests/support/Files.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SystemLog.h"

namespace {

namespace fs = std::filesystem;

class HostileStartTest : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_SANDBOX(); }

  // Expects a launcher with one item to start and to stop cleanly.
  void ExpectRunsAndStops(const std::function<void()>& prepare) {
    run_.StartItems(ItemsFile({Sleeper("a")}), prepare);
    run_.AwaitReady(1);
    run_.ExpectStops();
  }

  // Expects the one event about a log that cannot be opened.
  static void ExpectEvent(SystemLog& log) {
    const std::vector<std::string> lines = log.Lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_TRUE(lines[0].ends_with(std::string(kOwnerEventSource) +
                                   "alpha : " + kNoLoggerEvent))
        << lines[0];
  }

  fs::path LogFile() const {
    return run_.Home() / "Library/Logs/Demo/qvxlog/launcher.log";
  }

  LauncherRun run_;
};

class ClosedDescriptorsTest : public HostileStartTest,
                              public testing::WithParamInterface<int> {};

TEST_P(ClosedDescriptorsTest, DoNotKeepItFromStarting) {
  run_.StartItems(ItemsFile({Sleeper("a")}), [] {
    for (int i = 3; i < 1024; ++i) {
      close(i);
    }
    for (int i = 0; i < 3; ++i) {
      if ((GetParam() >> i & 1) != 0) {
        close(i);
      }
    }
  });
  run_.AwaitReady(1);
  const std::vector<pid_t> children = ChildrenOf(run_.Process());
  ASSERT_EQ(children.size(), 1U);
  EXPECT_TRUE(Eventually([&] { return DescriptorsOf(children[0]).empty(); }));
  EXPECT_EQ(ChildrenOf(run_.Process()), children);
  for (const auto& [number, target] : DescriptorsOf(run_.Process())) {
    EXPECT_GT(number, 2) << target;
  }
  run_.ExpectStops();
}

INSTANTIATE_TEST_SUITE_P(Combinations, ClosedDescriptorsTest,
                         testing::Range(0, 8));

TEST_F(HostileStartTest, InARemovedWorkingDirectory) {
  const fs::path directory = run_.Root() / "removed";
  fs::create_directory(directory);
  ExpectRunsAndStops([&] {
    fs::current_path(directory);
    fs::remove(directory);
  });
}

TEST_F(HostileStartTest, WithSixteenDescriptors) {
  run_.UseLibrary(LOGGER_LIBRARY);
  ExpectRunsAndStops([] {
    for (int i = 3; i < 1024; ++i) {
      close(i);
    }
    constexpr rlimit kFew{16, 16};
    setrlimit(RLIMIT_NOFILE, &kFew);
  });
  EXPECT_NE(ReadFile(LogFile()).find("status = 9"), std::string::npos);
}

TEST_F(HostileStartTest, WithoutHomeLogsBelowTheRoot) {
  ExpectRunsAndStops([] { unsetenv("HOME"); });
  EXPECT_EQ(run_.Messages().at(0), "InitLogger /Library/Logs/Demo/qvxlog");
}

TEST_F(HostileStartTest, WithAHomeOfFiveThousandBytesHasNoLog) {
  SystemLog log;
  run_.UseLibrary(LOGGER_LIBRARY);
  run_.SetEnvironment("HOME", "/" + std::string(5000, 'h'));
  ExpectRunsAndStops({});
  ExpectEvent(log);
}

TEST_F(HostileStartTest, WithoutAMaskForFilesKeepsItsLogPrivate) {
  run_.UseLibrary(LOGGER_LIBRARY);
  run_.StartItems(ItemsFile({Sleeper("a")}), [] { umask(0); });
  run_.AwaitReady(1);
  EXPECT_EQ(StatusField(ChildrenOf(run_.Process()).at(0), "Umask"), "0000");
  run_.ExpectStops();
  struct stat status;
  ASSERT_EQ(stat(LogFile().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  ASSERT_EQ(stat(LogFile().parent_path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

#ifdef FAILING_CALLS

class ClockTest
    : public HostileStartTest,
      public testing::WithParamInterface<std::pair<std::string, std::string>> {
};

TEST_P(ClockTest, DoesNotKeepItFromStarting) {
  run_.UseLibrary(LOGGER_LIBRARY);
  run_.SetEnvironment("LD_PRELOAD", FAILING_CALLS);
  run_.SetEnvironment("CLOCK", GetParam().first);
  ExpectRunsAndStops({});
  EXPECT_TRUE(ReadFile(LogFile()).starts_with(GetParam().second))
      << ReadFile(LogFile());
}

INSTANTIATE_TEST_SUITE_P(
    Times, ClockTest,
    testing::Values(std::pair{"2147483648", "2038-01-19T03:14:08."},
                    std::pair{"4102444800", "2100-01-01T00:00:00."}));

#endif

// The kernel reaps the children itself. The wait fails once the child has
// ended, and the item goes on.
TEST_F(HostileStartTest, WithSigchldIgnoredLogsFailedWaitsAndGoesOn) {
  run_.StartItems(ItemsFile({Tick("tick")}), [] { signal(SIGCHLD, SIG_IGN); });
  for (const LoggedEnd& end : run_.AwaitEnds("tick", 3)) {
    EXPECT_EQ(end.ret, -1);
    EXPECT_EQ(end.status, 0);
  }
  run_.ExpectStops();
}

TEST_F(HostileStartTest, WithSigchldBlocked) {
  ExpectRunsAndStops([] {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    sigprocmask(SIG_BLOCK, &set, nullptr);
  });
}

TEST_F(HostileStartTest, StopsAlthoughSigtermWasIgnored) {
  ExpectRunsAndStops([] { signal(SIGTERM, SIG_IGN); });
}

// The launcher changes no mask, since its children would start with it: a
// SIGTERM that its starter has blocked stays blocked.
TEST_F(HostileStartTest, WithSigtermBlockedIsOnlyEndedBySigkill) {
  run_.StartItems(ItemsFile({Sleeper("a")}), [] {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigprocmask(SIG_BLOCK, &set, nullptr);
  });
  run_.AwaitReady(1);
  run_.Signal(SIGTERM);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_TRUE(run_.IsRunning());
  EXPECT_EQ(StatusField(run_.Process(), "ShdPnd"), "0000000000004000");
  run_.Signal(SIGKILL);
  EXPECT_EQ(run_.Wait(), SIGKILL);
}

// The path does not fit into the launcher's buffer, so it finds no library.
TEST_F(HostileStartTest, FromAPathOfElevenHundredBytesHasNoLog) {
  SystemLog log;
  fs::path path = run_.Root();
  while (path.native().size() < 1100) {
    path /= std::string(100, 'p');
  }
  fs::create_directories(path);
  path /= "launcher";
  fs::create_symlink(fs::read_symlink(run_.Executable()), path);
  const std::string items =
      run_.Directory().Write("items.json", ItemsFile({Sleeper("a")}));
  run_.Start({}, [&] {
    execl(path.c_str(), path.c_str(), "alpha", items.c_str(), nullptr);
  });
  run_.AwaitReady(1);
  run_.ExpectStops();
  ExpectEvent(log);
  EXPECT_TRUE(run_.Records().empty());
}

TEST_F(HostileStartTest, WithALibraryOfAnotherArchitectureHasNoLog) {
  SystemLog log;
  constexpr std::size_t kMachine = 18;  // e_machine of the ELF header
  constexpr char kAarch64 = static_cast<char>(183);
  std::string library = ReadFile(RECORDING_LIBRARY);
  library.at(kMachine) = kAarch64;
  run_.UseLibrary(run_.Directory().Write("liblogger.foreign", library));
  ExpectRunsAndStops({});
  ExpectEvent(log);
  EXPECT_TRUE(run_.Records().empty());
}

}  // namespace
