#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "launcher/StopThread.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Poll.h"
#include "tests/support/ProcFs.h"
#include "tests/support/StackGuard.h"
#include "tests/support/SystemCalls.h"

#ifdef __linux__
#include <sys/syscall.h>
#endif

namespace {

// Every test runs in a forked child: the thread is the process's own.

std::atomic<int> g_calls = 0;
void Count() { ++g_calls; }

std::atomic<bool> g_may_return = false;
std::atomic<int> g_returns = 0;
void Hold() {
  ++g_calls;
  Eventually([] { return g_may_return.load(); });
  ++g_returns;
}

int OpenDescriptors() {
  constexpr int kHighest = 1024;
  int open = 0;
  for (int i = 0; i < kHighest; ++i) {
    open += fcntl(i, F_GETFD) != -1 ? 1 : 0;
  }
  return open;
}

TEST(StopThread, CallsOnceForEachWakeUpUntilItsEnd) {
  EXPECT_EQ(InForkedChild([] {
              if (!StartStopThread(Count)) return 1;
              for (int wake_ups = 1; wake_ups <= 3; ++wake_ups) {
                WakeStopThread();
                if (!Eventually([&] { return g_calls == wake_ups; })) return 2;
              }
              EndStopThread();
              WakeStopThread();
              return g_calls == 3 ? 0 : 3;
            }),
            0);
}

TEST(StopThread, RemembersWakeUpsDuringACall) {
  EXPECT_EQ(InForkedChild([] {
              StartStopThread(Hold);
              WakeStopThread();
              if (!Eventually([] { return g_calls == 1; })) return 1;
              WakeStopThread();
              WakeStopThread();
              g_may_return = true;
              return Eventually([] { return g_returns == 3; }) ? 0 : 2;
            }),
            0);
}

TEST(StopThread, LetsACallInProgressEnd) {
  EXPECT_EQ(InForkedChild([] {
              StartStopThread(Hold);
              WakeStopThread();
              if (!Eventually([] { return g_calls == 1; })) return 1;
              std::thread releaser([] {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                g_may_return = true;
              });
              EndStopThread();
              const bool had_returned = g_returns == 1;
              releaser.join();
              return had_returned ? 0 : 2;
            }),
            0);
}

// More wake-ups than any pipe has room for.
TEST(StopThread, NeverMakesTheWakerWait) {
  EXPECT_EQ(InForkedChild([] {
              constexpr int kWakeUps = 200'000;
              StartStopThread(Hold);
              for (int i = 0; i < kWakeUps; ++i) {
                WakeStopThread();
              }
              g_may_return = true;
              EndStopThread();
              return 0;
            }),
            0);
}

#ifdef __linux__

// A handler that does not restart calls, as a logger library may install.
TEST(StopThread, GoesOnAfterAnInterruptedRead) {
  EXPECT_EQ(InForkedChild([] {
              static std::atomic<int> interruptions = 0;
              struct sigaction action {};
              action.sa_handler = [](int) { ++interruptions; };
              sigaction(SIGUSR1, &action, nullptr);
              StartStopThread(Count);
              std::vector<pid_t> threads = ThreadsOf(getpid());
              std::erase(threads, getpid());
              for (int i = 1; i <= 3; ++i) {
                Eventually([&] {
                  return IsBlockedIn(getpid(), threads[0], SYS_read);
                });
                SignalThread(getpid(), threads[0], SIGUSR1);
                if (!Eventually([&] { return interruptions == i; })) return 1;
              }
              WakeStopThread();
              return Eventually([] { return g_calls == 1; }) ? 0 : 2;
            }),
            0);
}

#endif

#if defined(__linux__) && !defined(__SANITIZE_THREAD__)

TEST(StopThread, HasAStackThatIsGuarded) {
  EXPECT_EQ(InForkedChild([] {
              static std::atomic<int> guarded = -1;
              StartStopThread(
                  [] { guarded = StackIsGuarded(system_calls::RealFork); });
              WakeStopThread();
              Eventually([] { return guarded != -1; });
              return guarded == 1 ? 0 : 1;
            }),
            0);
}

#endif

TEST(StopThread, SaysWhetherItCanBeWoken) {
  EXPECT_EQ(InForkedChild([] {
              if (WakeStopThread()) return 1;
              EndStopThread();
              StartStopThread(Count);
              return WakeStopThread() ? 0 : 2;
            }),
            0);
}

TEST(StopThread, CanBeStartedAgainAfterItsEnd) {
  EXPECT_EQ(InForkedChild([] {
              StartStopThread(Count);
              EndStopThread();
              StartStopThread(Count);
              for (int wake_ups = 1; wake_ups <= 2; ++wake_ups) {
                WakeStopThread();
                if (!Eventually([&] { return g_calls == wake_ups; })) return 1;
              }
              return 0;
            }),
            0);
}

TEST(StopThread, CannotBeWokenAfterAStartThatIsRefused) {
  EXPECT_EQ(InForkedChild([] {
              StartStopThread(Count);
              EndStopThread();
              system_calls::OnPipe([] { return EMFILE; });
              if (StartStopThread(Count)) return 1;
              return WakeStopThread() ? 2 : 0;
            }),
            0);
}

TEST(StopThread, ClosesNothingWhenThePipeIsRefused) {
  EXPECT_EQ(InForkedChild([] {
              static int closed = 0;
              system_calls::OnPipe([] { return EMFILE; });
              system_calls::OnClose([](int) { ++closed; });
              return !StartStopThread(Count) && closed == 0 ? 0 : 1;
            }),
            0);
}

TEST(StopThread, LeavesNothingOpenWithoutAThread) {
  EXPECT_EQ(InForkedChild([] {
              system_calls::OnCreateThread([] { return EAGAIN; });
              const int before = OpenDescriptors();
              if (StartStopThread(Count)) return 1;
              if (OpenDescriptors() != before) return 2;
              WakeStopThread();
              EndStopThread();
              return 0;
            }),
            0);
}

TEST(StopThread, LeavesNothingOpenWithoutAPipe) {
  EXPECT_EQ(InForkedChild([] {
              close(3);
              constexpr rlimit kStandardDescriptorsOnly{3, 4};
              setrlimit(RLIMIT_NOFILE, &kStandardDescriptorsOnly);
              if (StartStopThread(Count)) return 1;
              // There is a pipe now, but no free number above the first three.
              close(STDIN_FILENO);
              close(STDOUT_FILENO);
              const int before = OpenDescriptors();
              if (StartStopThread(Count)) return 2;
              if (OpenDescriptors() != before) return 3;
              // Now there is a number for one of its ends.
              constexpr rlimit kOneMore{4, 4};
              setrlimit(RLIMIT_NOFILE, &kOneMore);
              if (StartStopThread(Count)) return 4;
              if (OpenDescriptors() != before) return 5;
              WakeStopThread();
              EndStopThread();
              return 0;
            }),
            0);
}

}  // namespace
