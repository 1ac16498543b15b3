// The launcher while its system calls fail: the first, the second, and so on
// until it stops without a failure.

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "launcher/Messages.h"
#include "tests/support/Files.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tests/support/Soak.h"

namespace {

using namespace std::chrono_literals;

constexpr int kNotStarted = 0;
constexpr int kStopped = 1 << 8;

// A line of the file that KILLS names.
constexpr std::string_view kEveryProcess = "-1\n";

class FaultRun {
 public:
  explicit FaultRun(const std::string& failing)
      : fails_onwards_(failing.ends_with('+')) {
    run_.SetEnvironment("LD_PRELOAD", FAILING_CALLS);
    run_.SetEnvironment("FAILING", failing);
    run_.SetEnvironment("FAILED", run_.Root() / "failed");
    run_.SetEnvironment("KILLS", run_.Root() / "kills");
  }

  // Runs two items for a while, stops the launcher and returns its wait status.
  // Expects a failure to leave nothing open or running.
  int RunItems() {
    run_.StartItems(ItemsFile({Short("a"), Tick("b")}), [] {
      for (int i = 3; i < 1024; ++i) {
        close(i);
      }
    });
    const pid_t process = run_.Process();
    Eventually([&] {
      return !run_.IsRunning() || IsBlockedIn(process, process, SYS_futex);
    });
    // Leaves time for a failed fork and a restart, which do not begin with a
    // wait.
    std::this_thread::sleep_for(70ms);
    EXPECT_TRUE(Eventually([&] { return HoldsLittle(); }));
    stop_ = std::chrono::steady_clock::now().time_since_epoch();
    const int status = run_.Stop();
    EXPECT_TRUE(Eventually([&] { return SessionOf(process).empty(); }));
    return status;
  }

  // When RunItems began to stop the launcher.
  std::chrono::nanoseconds StopTime() const { return stop_; }

  bool HasFailed() const {
    return std::filesystem::exists(run_.Root() / "failed");
  }
  std::string Kills() const { return ReadFile(run_.Root() / "kills"); }
  LauncherRun& Launcher() { return run_; }
  const LauncherRun& Launcher() const { return run_; }
  // Whether all calls after the first that fails do so, too.
  bool FailsOnwards() const { return fails_onwards_; }

 private:
  // A child that is forked during the stop is missed. It ends by itself.
  static std::string Short(const std::string& name) {
    return R"({"name": ")" + name +
           R"(", "program": "/bin/sleep", "argc": 1, "args": {"0": "2"}})";
  }

  // Whether the launcher has only one log and the two ends of its pipe for
  // SIGTERM open.
  bool HoldsLittle() const {
    int logs = 0;
    int others = 0;
    for (const auto& [number, target] : DescriptorsOf(run_.Process())) {
      ++(target.starts_with(run_.Root().native()) ? logs : others);
    }
    return logs <= 1 && others <= 2;
  }

  LauncherRun run_;
  bool fails_onwards_;
  std::chrono::nanoseconds stop_{0};
};

class FaultTest : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_SANDBOX(); }

  // Runs the launcher with each `call` failing, from the first to the last that
  // it makes, once and from there on; every `stride`th only. `expect` checks
  // the run and its wait status. Returns the number of calls that failed once.
  template <class Expect>
  int FailEach(const std::string& call, int stride, Expect expect) {
    int failed_once = 0;
    for (const char* const mode : {"", "+"}) {
      std::atomic<int> next = 1;
      std::atomic<int> failed = 0;
      std::atomic<bool> completed = false;
      std::vector<std::thread> threads;
      for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
          while (!completed) {
            const int nth = next.fetch_add(stride);
            const std::string failing = call + ":" + std::to_string(nth) + mode;
            SCOPED_TRACE(failing);
            FaultRun run(failing);
            if (!library_.empty()) {
              run.Launcher().UseLibrary(library_);
            }
            const int status = run.RunItems();
            if (run.HasFailed()) {
              ++failed;
            } else {
              completed = true;
            }
            // An item that had not forked: the launcher's group was killed.
            if (run.Kills().find("0") != std::string::npos) {
              EXPECT_EQ(status, SIGKILL);
              continue;
            }
            expect(run, nth, status);
          }
        });
      }
      for (std::thread& thread : threads) {
        thread.join();
      }
      EXPECT_GT(failed, 0) << call << " is never made";
      RecordProperty(call + "_failures" + (*mode == '+' ? "_onwards" : "_once"),
                     failed);
      if (*mode == '\0') {
        failed_once = failed;
      }
    }
    return failed_once;
  }

  // Replaces the recording library, unless empty.
  std::string library_;
};

void ExpectStopped(FaultRun&, int, int status) { EXPECT_EQ(status, kStopped); }

bool HasLogged(const FaultRun& run, const std::string& part) {
  return std::ranges::any_of(run.Launcher().Messages(),
                             [&](const std::string& message) {
                               return message.find(part) != std::string::npos;
                             });
}

TEST_F(FaultTest, AFailedForkEndsTheItemAndItsStopSignalsEveryProcess) {
  FailEach("fork", 1, [](FaultRun& run, int, int status) {
    EXPECT_EQ(status, kStopped);
    const auto failures =
        run.Launcher().Await(Message(kForkFailedMessage, ""), 0);
    // An item whose fork failed during the stop may have been stopped before.
    const auto early =
        std::ranges::count_if(failures, [&](const LogRecord& failure) {
          return failure.time < run.StopTime();
        });
    const std::string kills = run.Kills();
    EXPECT_GE(std::ssize(kills), early * std::ssize(kEveryProcess));
    EXPECT_LE(std::ssize(kills),
              std::ssize(failures) * std::ssize(kEveryProcess));
    for (std::size_t i = 0; i < kills.size(); i += kEveryProcess.size()) {
      EXPECT_EQ(kills.substr(i, kEveryProcess.size()), kEveryProcess);
    }
    EXPECT_EQ(!failures.empty(), run.HasFailed());
  });
}

TEST_F(FaultTest, AFailedWaitIsLoggedAndTheItemGoesOn) {
  FailEach("waitpid", 1, [](FaultRun& run, int, int status) {
    EXPECT_EQ(status, kStopped);
    EXPECT_EQ(run.HasFailed(),
              std::ranges::any_of(run.Launcher().Ends(), [](const auto& end) {
                return end.ret == -1 && end.status == 0;
              }));
  });
}

TEST_F(FaultTest, ARefusedThreadForAnItemEndsTheStart) {
  FailEach("pthread_create", 1, [](FaultRun& run, int nth, int status) {
    // The first is the stop thread, which the launcher can do without.
    const bool ends = run.HasFailed() && (nth > 1 || run.FailsOnwards());
    EXPECT_EQ(status, ends ? kNotStarted : kStopped);
    EXPECT_EQ(HasLogged(run, kParseFailedMessage), ends);
  });
}

TEST_F(FaultTest, TheLauncherDoesWithoutARefusedPipe) {
  FailEach("pipe", 1, ExpectStopped);
}

TEST_F(FaultTest, TheLauncherDoesWithoutALibraryThatCannotBeLoaded) {
  FailEach("dlopen", 1, [](FaultRun& run, int, int status) {
    EXPECT_EQ(status, kStopped);
    EXPECT_EQ(run.Launcher().Records().empty(), run.HasFailed());
  });
}

// The items file, qvxapi.ini, log.ini, and qvxapi.ini once more. All but the
// first have defaults.
TEST_F(FaultTest, AFileThatCannotBeOpenedCountsAsMissing) {
  const auto expect = [](FaultRun& run, int nth, int status) {
    EXPECT_EQ(status, run.HasFailed() && nth == 1 ? kNotStarted : kStopped);
  };
  EXPECT_EQ(FailEach("fopen", 1, expect), 4);
}

TEST_F(FaultTest, APathThatCannotBeResolvedIsUsedAsItIs) {
  FailEach("realpath", 1, [](FaultRun& run, int nth, int status) {
    ExpectStopped(run, nth, status);
    EXPECT_FALSE(run.Launcher().Records().empty());
  });
}

TEST_F(FaultTest, TheLauncherDoesWithoutALogThatCannotBeOpenedOrWritten) {
  library_ = LOGGER_LIBRARY;
  FailEach("openat", 1, ExpectStopped);
  FailEach("write", 1, ExpectStopped);
}

// A refused allocation changes nothing, ends the start or, outside the reading
// of the items, aborts the launcher. A start that ends logs it, once there is a
// log.
TEST_F(FaultTest, RefusedMemoryEndsTheLauncherInOrderOrByAbort) {
  FailEach("malloc", SoakOr(1, 12), [](FaultRun& run, int, int status) {
    EXPECT_TRUE(status == kNotStarted || status == kStopped ||
                WTERMSIG(status) == SIGABRT)
        << status;
    if (WIFEXITED(status) && HasLogged(run, "GetLogger ")) {
      EXPECT_EQ(HasLogged(run, kParseFailedMessage), status == kNotStarted);
    }
  });
}

// The signals are really sent. In a PID namespace below the test's, -1 reaches
// the items and a bystander, but not the launcher, which sends it, nor the
// namespace's first process.
TEST_F(FaultTest, StoppingAfterAFailedForkKillsEveryProcessForReal) {
  FaultRun run("fork:2+");
  run.Launcher().SetEnvironment("KILLS", "");
  const std::string report = run.Launcher().Root() / "report";
  run.Launcher().StartItems(ItemsFile({Tick("a")}), [&] {
    unshare(CLONE_NEWPID);
    const pid_t init = fork();
    if (init != 0) {
      waitpid(init, nullptr, 0);
      _exit(0);
    }
    const pid_t bystander = fork();
    if (bystander == 0) {
      setsid();
      pause();
    }
    const pid_t launcher = fork();
    if (launcher == 0) {
      return;
    }
    run.Launcher().Await(Message(kForkFailedMessage, "a"));
    int status[2] = {-1, -1};
    Eventually([&] {
      kill(launcher, SIGTERM);
      return waitpid(launcher, &status[0], WNOHANG) == launcher;
    });
    Eventually(
        [&] { return waitpid(bystander, &status[1], WNOHANG) == bystander; });
    std::ofstream(report) << status[0] << " " << status[1];
    _exit(0);
  });
  run.Launcher().Wait();
  EXPECT_EQ(ReadFile(report), std::to_string(kStopped) + " 9");
}

// Its exit-time destruction signals every process, since its item has the id
// -1. If `main` had not stored the item before the fork, the test tries again.
TEST_F(FaultTest, ALinkOfAChainWhoseForkFailsEndsWithStatusZero) {
  std::string kills;
  for (int i = 0; kills.empty() && i < 200; ++i) {
    FaultRun run("fork:2");
    run.Launcher().StartItems(
        ItemsFile({R"({"name": "chain", "program": "/nonexistent"})"}));
    EXPECT_EQ(run.Launcher().AwaitEnds("chain").at(0).status, 0);
    const LogRecord failure =
        run.Launcher().Await(Message(kForkFailedMessage, "chain")).at(0);
    EXPECT_EQ(failure.process, run.Launcher().AwaitEnds("chain").at(0).child);
    kills = run.Kills();
  }
  EXPECT_TRUE(kills.starts_with(kEveryProcess)) << kills;
}

TEST_F(FaultTest, StoppingBeforeTheFirstForkKillsTheGroupForReal) {
  FaultRun run("fork:hold");
  run.Launcher().StartItems(ItemsFile({Tick("a")}));
  const pid_t process = run.Launcher().Process();
  run.Launcher().AwaitWaiting();
  EXPECT_TRUE(Eventually([&] {
    const std::vector<pid_t> threads = ThreadsOf(process);
    return std::ranges::any_of(threads, [&](pid_t thread) {
      return IsBlockedIn(process, thread, SYS_pause);
    });
  }));
  run.Launcher().Signal(SIGTERM);
  EXPECT_EQ(run.Launcher().Wait(), SIGKILL);
  EXPECT_EQ(run.Kills(), "0\n");
}

// The signal ends the forked child alone; the launcher logs its end.
TEST_F(FaultTest, ASigtermToAForkedChildBeforeExecvSparesTheLauncher) {
  FaultRun run("execv:term");
  run.Launcher().StartItems(ItemsFile({Sleeper("a")}));
  EXPECT_EQ(run.Launcher().AwaitEnds("a").at(0).status, SIGTERM);
  run.Launcher().AwaitReady(1);
  EXPECT_TRUE(run.Launcher().IsRunning());
  EXPECT_EQ(run.Launcher().Stop(), kStopped);
}

}  // namespace
