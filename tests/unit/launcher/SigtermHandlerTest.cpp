// The handling of SIGTERM, and the globals that it works on.

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <thread>

#include "launcher/Forks.h"
#include "launcher/Items.h"
#include "launcher/StopThread.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SystemCalls.h"
#include "tests/unit/launcher/MainFixture.h"

namespace {

template <class Trigger>
bool IsWokenBy(Trigger trigger) {
  const std::future<void> woken = TriggerInAWait(trigger);
  return Eventually([&] {
    return woken.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  });
}

template <class Trigger>
bool StaysAsleepAfter(Trigger trigger) {
  constexpr std::chrono::milliseconds kLongEnough{300};
  const std::future<void> woken = TriggerInAWait(trigger);
  return woken.wait_for(kLongEnough) == std::future_status::timeout;
}

using SigtermTest = LoggedTest;

TEST_F(SigtermTest, EmptiesTheMapAndThenWakesTheWaitEveryTime) {
  REQUIRE_SANDBOX();
  EXPECT_EQ(InForkedChild([this] {
              InitDaemon();
              RunSleeper();
              if (!IsWokenBy([] { raise(SIGTERM); })) return 1;
              if (!g_child_map.empty()) return 2;
              // The child has ended, and so has the pause after its end.
              const auto now = std::chrono::steady_clock::now();
              const LogRecord end = RecordingLog::Read(log_file_).back();
              if (now.time_since_epoch() - end.time < kRestartPause) return 3;
              if (!IsWokenBy([] { raise(SIGTERM); })) return 4;
              return 0;
            }),
            0);
}

// The supervision threads hold the map's lock when they fork, so no thread may
// wait for one of them while it holds that lock.
TEST_F(SigtermTest, StopsAnItemThatIsAboutToFork) {
  REQUIRE_SANDBOX();
  EXPECT_EQ(InForkedChild([] {
              static std::atomic<bool> at_fork = false;
              static std::atomic<bool> may_fork = false;
              system_calls::OnFork([] {
                at_fork = true;
                Eventually([] { return may_fork.load(); });
                return system_calls::RealFork();
              });
              InitDaemon();
              g_child_map["true"] = std::make_shared<ChildProc>(
                  "owner",
                  JsonObject(R"({"name": "true", "program": "/bin/true"})"));
              Eventually([] { return at_fork.load(); });
              raise(SIGTERM);
              Eventually([] { return !system_calls::Kills().empty(); });
              may_fork = true;
              EndStopThread();
              return g_child_map.empty() ? 0 : 1;
            }),
            0);
}

TEST(SigtermHandler, DoesNothingForOtherSignals) {
  EXPECT_EQ(InForkedChild([] {
              InitDaemon();
              return StaysAsleepAfter([] { sigterm_handler(SIGINT); }) ? 0 : 1;
            }),
            0);
}

// `main` waits with this mutex, and the handler may run on its thread.
TEST(SigtermHandler, NotifiesWithoutTheMutexOfTheWait) {
  EXPECT_EQ(InForkedChild([] {
              InitDaemon();
              static std::atomic<bool> stopped = false;
              g_child_map["item"] = std::shared_ptr<ChildProc>(
                  nullptr, [](ChildProc*) { stopped = true; });
              const std::lock_guard lock(g_process_mutex);
              raise(SIGTERM);
              Eventually([] { return stopped.load(); });
              EndStopThread();
              return 0;
            }),
            0);
}

TEST(SigtermHandler, KeepsErrno) {
  EXPECT_EQ(InForkedChild([] {
              InitDaemon();
              // Without its pipe the handler's write fails.
              constexpr int kHighest = 1024;
              for (int i = 3; i < kHighest; ++i) {
                close(i);
              }
              errno = EDOM;
              sigterm_handler(SIGTERM);
              return errno == EDOM ? 0 : 1;
            }),
            0);
}

TEST(SigtermHandler, WakesAllThatWait) {
  EXPECT_EQ(InForkedChild([] {
              InitDaemon();
              bool woken = false;
              const bool other_woken =
                  IsWokenBy([&] { woken = IsWokenBy([] { raise(SIGTERM); }); });
              return woken && other_woken ? 0 : 1;
            }),
            0);
}

using NoStopThreadTest = LoggedTest;

// Puts a running item into the map; expects the handler, called by `trigger`,
// to stop it and to wake the wait at once.
template <class Trigger>
int StopsAnItem(Trigger trigger) {
  RunSleeper();
  bool stopped = false;
  const bool woken = IsWokenBy([&] {
    trigger();
    stopped = g_child_map.empty() && system_calls::Kills().size() == 1;
  });
  return !stopped ? 1 : woken ? 0 : 2;
}

TEST_F(NoStopThreadTest, TheHandlerStopsTheItemsItselfBeforeInitDaemon) {
  REQUIRE_SANDBOX();
  EXPECT_EQ(InForkedChild(
                [] { return StopsAnItem([] { sigterm_handler(SIGTERM); }); }),
            0);
}

TEST_F(NoStopThreadTest, TheHandlerStopsTheItemsItselfWithoutAPipe) {
  REQUIRE_SANDBOX();
  EXPECT_EQ(InForkedChild([] {
              system_calls::OnPipe([] { return EMFILE; });
              InitDaemon();
              return StopsAnItem([] { raise(SIGTERM); });
            }),
            0);
}

TEST_F(NoStopThreadTest, TheHandlerWakesTheWaitWithoutAThread) {
  EXPECT_EQ(InForkedChild([] {
              system_calls::OnCreateThread([] { return EAGAIN; });
              InitDaemon();
              system_calls::Reset();
              return IsWokenBy([] { raise(SIGTERM); }) ? 0 : 1;
            }),
            0);
}

// A supervision thread that did the work would join itself.
TEST_F(NoStopThreadTest,
       TheMainThreadDoesTheWorkWhicheverThreadTheKernelPicks) {
  REQUIRE_SANDBOX();
  EXPECT_EQ(InForkedChild([] {
              system_calls::OnPipe([] { return EMFILE; });
              InitDaemon();
              RunSleeper();
              for (const pid_t thread : ThreadsOf(getpid())) {
                if (thread != getpid()) {
                  SignalThread(getpid(), thread, SIGTERM);
                }
              }
              return Eventually([] { return g_child_map.empty(); }) ? 0 : 1;
            }),
            0);
}

TEST_F(NoStopThreadTest, TheHandlerLeavesTheMapToAnExit) {
  EXPECT_EQ(InForkedChild([] {
              system_calls::OnPipe([] { return EMFILE; });
              InitDaemon();
              g_child_map["nothing"] = nullptr;
              AnnounceExit();
              raise(SIGTERM);
              return g_child_map.size() == 1 ? 0 : 1;
            }),
            0);
}

TEST(SigtermHandler, EndsAForkedChildAsByDefaultAndSparesTheLauncher) {
  EXPECT_EQ(InForkedChild([] {
              InitDaemon();
              bool child_ended = false;
              const bool spared = StaysAsleepAfter([&] {
                child_ended = InForkedChild([] {
                                raise(SIGTERM);
                                return 0;
                              }) == -SIGTERM;
              });
              if (!child_ended) return 1;
              return spared ? 0 : 2;
            }),
            0);
}

bool g_signals_early = false;

// Registered before the launcher's own fork handlers, so it runs before them.
[[gnu::constructor(101)]] void RegisterEarlyHandler() {
  pthread_atfork(nullptr, nullptr, [] {
    if (g_signals_early) {
      raise(SIGTERM);
    }
  });
}

TEST(SigtermHandler, EndsAForkedChildBeforeItsForkHandlersHaveRun) {
  EXPECT_EQ(InForkedChild([] {
              InitDaemon();
              bool child_ended = false;
              const bool spared = StaysAsleepAfter([&] {
                g_signals_early = true;
                child_ended = InForkedChild([] { return 0; }) == -SIGTERM;
              });
              if (!child_ended) return 1;
              return spared ? 0 : 2;
            }),
            0);
}

// Process ids are reused: a chain's tail may get the id of the launcher, which
// has ended.
TEST(SigtermHandler, EndsAForkedChildThatHasTheLaunchersProcessId) {
  EXPECT_EQ(InForkedChild([] {
              InitDaemon();
              return -InForkedChild([] {
                system_calls::OnGetpid([id = getppid()] { return id; });
                raise(SIGTERM);
                return 0;
              });
            }),
            SIGTERM);
}

// Destroying a condition variable that counts a waiter waits for that waiter,
// and the forked child has no such thread.
TEST(Globals, AreDestroyedInAForkedChildThoughMainWaits) {
  EXPECT_EQ(InForkedChild([] {
              InitDaemon();
              int status = -1;
              const auto waiter = TriggerInAWait([&] {
                status = InForkedChild([]() -> int { std::exit(7); });
              });
              return status == 7 ? 0 : 1;
            }),
            0);
}

#ifdef __GLIBC__

// The destruction of a condition variable waits for its waiters; the map must
// still exist then.
TEST(Globals, AreDestroyedInTheOrderConditionMutexMap) {
  REQUIRE_SANDBOX();
  EXPECT_EQ(InForkedChild([]() -> int {
              RunSleeper();
              const auto waiter = TriggerInAWait([] {});
              std::thread([] {
                std::this_thread::sleep_for(std::chrono::milliseconds(300));
                if (!system_calls::Kills().empty()) _exit(1);
                g_process_condition.notify_all();
              }).detach();
              std::exit(0);
            }),
            0);
}

#endif

TEST(Globals, StartEmptyWithALoadFactorOfOne) {
  EXPECT_TRUE(g_child_map.empty());
  EXPECT_EQ(g_child_map.max_load_factor(), 1.0F);
}

}  // namespace
