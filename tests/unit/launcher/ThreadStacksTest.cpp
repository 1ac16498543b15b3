#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <fstream>
#include <functional>
#include <iterator>
#include <latch>
#include <thread>
#include <vector>

#include "launcher/Items.h"
#include "launcher/ThreadStacks.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/StackGuard.h"
#include "tests/support/SystemCalls.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

#ifdef __linux__

void* WaitForEver() {
  for (;;) {
    pause();
  }
}

void Write(char* address) { *static_cast<volatile char*>(address) = 1; }

using Body = std::function<void()>;

// Starts a thread of the launcher's kind that runs `body`.
pthread_t StartGuarded(const Body& body) {
  pthread_t thread;
  EXPECT_EQ(CreateThread(
                &thread,
                [](void* argument) -> void* {
                  GuardThreadStack();
                  (*static_cast<const Body*>(argument))();
                  return nullptr;
                },
                const_cast<Body*>(&body)),
            0);
  return thread;
}

void OnGuardedThread(const Body& body) {
  pthread_join(StartGuarded(body), nullptr);
}

std::ptrdiff_t Mappings() {
  std::ifstream maps("/proc/self/maps");
  return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
}

// Whether the system can guard a page without a separate mapping.
bool HasGuardMarks() {
  constexpr int kGuardInstall = 102;
  void* const page =
      mmap(nullptr, static_cast<std::size_t>(getpagesize()),
           PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  const bool has = madvise(page, static_cast<std::size_t>(getpagesize()),
                           kGuardInstall) == 0;
  munmap(page, static_cast<std::size_t>(getpagesize()));
  return has;
}

TEST(ThreadStacks, HaveTheSizeThatTheHeaderSays) {
  std::size_t size = 0;
  OnGuardedThread([&] { size = OwnStack().bytes; });
  EXPECT_EQ(size, kSupervisionStackBytes);
}

// A logger library's, for example.
TEST(ThreadStacks, LeaveOtherThreadsUnchanged) {
  std::size_t size = 0;
  std::size_t before = 0;
  std::thread([&] { before = OwnStack().bytes; }).join();
  std::atomic<bool> ended = false;
  std::thread creator([&] {
    while (!ended) {
      OnGuardedThread([] {});
    }
  });
  for (int i = 0; i < 1000; ++i) {
    std::thread([&] {
      size = OwnStack().bytes;
      EXPECT_GT(OwnStack().guard_bytes, 0U);
    }).join();
    EXPECT_EQ(size, before);
  }
  ended = true;
  creator.join();
}

TEST(ThreadStacks, PassTheSystemsErrorOn) {
  system_calls::OnCreateThread([] { return EAGAIN; });
  pthread_t thread;
  EXPECT_EQ(CreateThread(
                &thread, [](void*) -> void* { return nullptr; }, nullptr),
            EAGAIN);
  system_calls::Reset();
}

TEST(ThreadStacks, FaultAtTheirLowestByte) {
  EXPECT_EQ(InForkedChild([] {
              OnGuardedThread([] { Write(OwnStack().lowest); });
              return 0;
            }),
            -SIGSEGV);
}

TEST(ThreadStacks, FaultAtTheWholeLowestPage) {
  EXPECT_EQ(
      InForkedChild([] {
        OnGuardedThread([] { Write(OwnStack().lowest + getpagesize() - 1); });
        return 0;
      }),
      -SIGSEGV);
}

TEST(ThreadStacks, CanBeUsedDownToTheGuard) {
  EXPECT_EQ(InForkedChild([] {
              OnGuardedThread([] { Write(OwnStack().lowest + getpagesize()); });
              return 0;
            }),
            0);
}

TEST(ThreadStacks, KeepTheirGuardInAForkedChild) {
  EXPECT_EQ(InForkedChild([] {
              int status = 0;
              OnGuardedThread([&] {
                const pid_t child = fork();
                if (child == 0) {
                  Write(OwnStack().lowest);
                  _exit(0);
                }
                waitpid(child, &status, 0);
              });
              return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
            }),
            SIGSEGV);
}

TEST(ThreadStacks, FaultWhereTheKernelRefusesTheMark) {
  for (const std::ptrdiff_t beyond : {0, 1}) {
    const int status = InForkedChild([&] {
      // They reuse stacks that earlier threads have marked. The C library keeps
      // 40 MiB of these.
      constexpr int kKept = 100;
      for (int i = 0; i < kKept; ++i) {
        pthread_t idle;
        CreateThread(
            &idle, [](void*) -> void* { return WaitForEver(); }, nullptr);
      }
      system_calls::OnMadvise([] {
        errno = EINVAL;
        return -1;
      });
      OnGuardedThread(
          [&] { Write(OwnStack().lowest + beyond * getpagesize()); });
      return 0;
    });
    EXPECT_EQ(status, beyond == 0 ? -SIGSEGV : 0);
  }
}

#ifdef __GLIBC__

TEST(ThreadStacks, KeepNoMemoryOfTheirThreads) {
  EXPECT_EQ(InForkedChild([] {
              constexpr std::size_t kThreads = 500;
              OnGuardedThread([] {});
              const std::size_t before = mallinfo2().uordblks;
              for (std::size_t i = 0; i < kThreads; ++i) {
                OnGuardedThread([] {});
              }
              return mallinfo2().uordblks < before + 8 * kThreads ? 0 : 1;
            }),
            0);
}

#endif

// The cost of a fork depends on this.
TEST(ThreadStacks, NeedNoMappingEach) {
  if (!HasGuardMarks()) {
    GTEST_SKIP() << "needs Linux 6.13";
  }
  EXPECT_EQ(InForkedChild([] {
              constexpr int kThreads = 64;
              const std::ptrdiff_t before = Mappings();
              std::latch guarded(kThreads);
              std::latch counted(1);
              const Body body = [&] {
                guarded.count_down();
                counted.wait();
              };
              std::vector<pthread_t> threads;
              for (int i = 0; i < kThreads; ++i) {
                threads.push_back(StartGuarded(body));
              }
              guarded.wait();
              const std::ptrdiff_t more = Mappings() - before;
              counted.count_down();
              for (const pthread_t thread : threads) {
                pthread_join(thread, nullptr);
              }
              return more < kThreads ? 0 : 1;
            }),
            0);
}

#endif

}  // namespace
