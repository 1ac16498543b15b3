#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/util/ProcessHelpers.h"
#include "tests/support/Allocations.h"
#include "tests/support/AnotherUser.h"
#include "tests/support/FakeExecutablePath.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Poll.h"
#include "tests/support/TempDir.h"

namespace {

// The descriptor that the next file to be opened gets.
int NextDescriptor() {
  const int descriptor = open("/dev/null", O_RDONLY);
  close(descriptor);
  return descriptor;
}

using namespace std::string_literals;

TEST(Pexec, ReturnsTheCommandsOutput) {
  EXPECT_EQ(pexec("echo a; echo b"), "a\nb\n");
  EXPECT_EQ(pexec("printf 'no line end'"), "no line end");
  EXPECT_EQ(pexec("printf 'a\\r\\n\\n b '"), "a\r\n\n b ");
}

TEST(Pexec, ReturnsNothingFromASilentCommand) {
  EXPECT_EQ(pexec("true"), "");
  EXPECT_EQ(pexec(""), "");
}

TEST(Pexec, ReturnsOnlyStandardOutput) {
  EXPECT_EQ(pexec("echo out; echo err 2>/dev/null >&2"), "out\n");
}

TEST(Pexec, DiscardsTheExitStatus) {
  EXPECT_EQ(pexec("echo a; exit 3"), "a\n");
  EXPECT_EQ(pexec("echo a; kill -9 $$"), "a\n");
}

TEST(Pexec, ReturnsLongOutputWhole) {
  std::string expected;
  for (int i = 1; i <= 20'000; ++i) {
    expected += std::to_string(i) + "\n";
  }
  EXPECT_EQ(pexec("i=1; while [ $i -le 20000 ]; do echo $i; i=$((i+1)); done"),
            expected);
}

TEST(Pexec, JoinsThePiecesOfLongLines) {
  for (const int length : {125, 126, 127, 128, 254, 255, 5000}) {
    const std::string number = std::to_string(length);
    EXPECT_EQ(
        pexec("printf '%" + number + "s\\nend' x"),
        std::string(static_cast<std::size_t>(length) - 1, ' ') + "x\nend");
  }
}

TEST(Pexec, DropsTextAfterAZeroInALine) {
  EXPECT_EQ(pexec("printf 'a\\0b\\nc'"), "ac");
  EXPECT_EQ(pexec("printf '\\0a\\nb\\0\\nc\\n'"), "bc\n");
}

TEST(Pexec, DropsTextAfterAZeroInAPieceOf127Bytes) {
  EXPECT_EQ(pexec("printf '%126s\\0x\\n' ''"), std::string(126, ' ') + "x\n");
  EXPECT_EQ(pexec("printf '%125s\\0yx\\n' ''"), std::string(125, ' ') + "x\n");
  EXPECT_EQ(pexec("printf '%127s\\0x\\n' ''"), std::string(127, ' '));
}

TEST(Pexec, CutsTheCommandAtAZero) {
  EXPECT_EQ(pexec("echo a\0; echo b"s), "a\n");
}

TEST(Pexec, InheritsEnvironmentAndWorkingDirectory) {
  ASSERT_EQ(setenv("LAUNCHER_PEXEC_TEST", "value", 1), 0);
  EXPECT_EQ(pexec("echo $LAUNCHER_PEXEC_TEST"), "value\n");
  unsetenv("LAUNCHER_PEXEC_TEST");

  const TempDir folder;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.Path());
  EXPECT_EQ(pexec("pwd -P"), folder.Path().string() + "\n");
  std::filesystem::current_path(before);
}

TEST(Pexec, WaitsForACommandThatHasClosedItsOutput) {
  const TempDir folder;
  const std::string file = folder.Path() / "done";
  pexec("exec >&-; sleep 0.2; echo > '" + file + "'");
  EXPECT_TRUE(std::filesystem::exists(file));
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(Pexec, LeavesNoDescriptorOpen) {
  const int before = NextDescriptor();
  pexec("echo a");
  EXPECT_EQ(NextDescriptor(), before);
}

TEST(Pexec, EndsACommandWhoseOutputExceedsTheMemory) {
  static constexpr std::size_t kLittle = 100'000;
  const int before = NextDescriptor();
  g_on_allocation = [](std::size_t bytes) {
    if (bytes > kLittle) {
      throw std::bad_alloc();
    }
  };
  EXPECT_THROW(pexec("yes"), std::bad_alloc);
  g_on_allocation = nullptr;
  EXPECT_EQ(NextDescriptor(), before);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

// A failed read does not end the output.
TEST(Pexec, ContinuesAfterAnInterruptedRead) {
  struct sigaction interrupting {};
  interrupting.sa_handler = [](int) {};
  struct sigaction before {};
  ASSERT_EQ(sigaction(SIGALRM, &interrupting, &before), 0);
  constexpr itimerval kEvery10Milliseconds{{0, 10'000}, {0, 10'000}};
  constexpr itimerval kStopped{{0, 0}, {0, 0}};
  ASSERT_EQ(setitimer(ITIMER_REAL, &kEvery10Milliseconds, nullptr), 0);
  const std::string output = pexec("sleep 0.3; echo late");
  setitimer(ITIMER_REAL, &kStopped, nullptr);
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_EQ(output, "late\n");
}

// Each read that would wait fails.
TEST(Pexec, ContinuesAfterReadsThatFindNothing) {
  const TempDir folder;
  const std::string mark = folder.Path() / "mark";
  std::thread changer([&, output = NextDescriptor()] {
    struct stat state {};
    EXPECT_TRUE(Eventually(
        [&] { return fstat(output, &state) == 0 && S_ISFIFO(state.st_mode); }));
    EXPECT_EQ(fcntl(output, F_SETFL, O_NONBLOCK), 0);
    folder.Write("mark", "");
  });
  EXPECT_EQ(pexec("until [ -e '" + mark +
                  "' ]; do sleep 0.01; done; "
                  "sleep 0.3; echo a; sleep 0.3; echo late"),
            "a\nlate\n");
  changer.join();
}

TEST(Pexec, ServesSeveralThreadsAtOnce) {
  std::array<std::string, 4> outputs;
  std::string expected;
  std::vector<std::thread> threads;
  for (std::string& output : outputs) {
    threads.emplace_back([&output] {
      output =
          pexec("i=0; while [ $i -lt 2000 ]; do echo $i; i=$((i+1)); done");
    });
  }
  for (int i = 0; i < 2000; ++i) {
    expected += std::to_string(i) + "\n";
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const std::string& output : outputs) {
    EXPECT_EQ(output, expected);
  }
}

// Without a free descriptor there is no pipe to the command.
TEST(Pexec, ThrowsWhenTheCommandCannotBeStarted) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  std::string text;
  try {
    pexec("echo a");
    setrlimit(RLIMIT_NOFILE, &before);
  } catch (const std::runtime_error& error) {
    setrlimit(RLIMIT_NOFILE, &before);
    text = error.what();
  }
  EXPECT_EQ(text, "popen() failed!");
}

TEST(IsRunningPid, IsTrueForLiveProcesses) {
  EXPECT_TRUE(IsRunningPID(getpid()));
  EXPECT_TRUE(IsRunningPID(getppid()));
}

TEST(IsRunningPid, IsTrueUntilAnEndedProcessIsWaitedFor) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(0);
  }
  siginfo_t ended{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT),
            0);
  EXPECT_TRUE(IsRunningPID(child));
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_FALSE(IsRunningPID(child));
}

TEST(IsRunningPid, IsFalseWithoutAProcess) {
  EXPECT_FALSE(IsRunningPID(0x7FFFFFFF));
  EXPECT_FALSE(IsRunningPID(-0x7FFFFFFFLL));
}

TEST(IsRunningPid, UsesTheLow32BitsOfTheId) {
  EXPECT_TRUE(IsRunningPID(getpid() + 0x1'0000'0000LL));
  EXPECT_TRUE(IsRunningPID(getpid() - 0x1'0000'0000LL));
  EXPECT_FALSE(IsRunningPID(0x1'7FFF'FFFFLL));
}

TEST(IsRunningPid, IsTrueForItsOwnProcessGroup) {
  EXPECT_TRUE(IsRunningPID(0));
}

TEST(IsRunningPid, DoesNotDisturbTheProcess) {
  const pid_t child = fork();
  if (child == 0) {
    for (;;) {
      pause();
    }
  }
  EXPECT_TRUE(IsRunningPID(child));
  EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST(IsRunningPid, IsFalseForAProcessThatMayNotBeSignalled) {
  REQUIRE_ANOTHER_USER();
  EXPECT_EQ(InForkedChild([] {
              if (setuid(kAnotherUser) != 0) return 2;
              return IsRunningPID(getppid()) ? 1 : 0;
            }),
            0);
}

std::string CurrentPathOf(std::optional<std::string> executable) {
  g_executable_path = std::move(executable);
  return GetCurrentPath();
}

TEST(GetCurrentPath, IsTheFolderOfTheExecutable) {
  EXPECT_EQ(CurrentPathOf("/usr/local/bin/tool"), "/usr/local/bin");
  EXPECT_EQ(CurrentPathOf("/a/tool"), "/a");
}

TEST(GetCurrentPath, IsEmptyInTheRootFolder) {
  EXPECT_EQ(CurrentPathOf("/tool"), "");
}

TEST(GetCurrentPath, KeepsDotsAndDoubleSlashes) {
  EXPECT_EQ(CurrentPathOf("/a/./b/../tool"), "/a/./b/..");
  EXPECT_EQ(CurrentPathOf("/a//tool"), "/a/");
}

TEST(GetCurrentPath, IsEmptyWithoutASlash) {
  EXPECT_EQ(CurrentPathOf("tool"), "");
}

TEST(GetCurrentPath, IsEmptyWhenThePathIsUnknown) {
  EXPECT_EQ(CurrentPathOf(std::nullopt), "");
}

TEST(GetCurrentPath, AcceptsPathsOfUpTo1024Bytes) {
  const std::string folder = "/" + std::string(1017, 'd');
  EXPECT_EQ(CurrentPathOf(folder + "/tool1"), folder);
  EXPECT_EQ(g_offered_size, 1025U);
  EXPECT_EQ(CurrentPathOf(folder + "/tool12"), "");
}

}  // namespace
