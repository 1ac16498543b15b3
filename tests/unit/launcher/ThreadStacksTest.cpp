#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <latch>
#include <thread>
#include <vector>

#include "launcher/ThreadStacks.h"
#include "tests/support/ForkedChild.h"

namespace {

#ifdef __linux__

struct Stack {
  char* lowest = nullptr;
  std::size_t bytes = 0;
};

Stack OwnStack() {
  pthread_attr_t attributes;
  pthread_getattr_np(pthread_self(), &attributes);
  void* lowest = nullptr;
  Stack stack;
  pthread_attr_getstack(&attributes, &lowest, &stack.bytes);
  pthread_attr_destroy(&attributes);
  stack.lowest = static_cast<char*>(lowest);
  return stack;
}

void Write(char* address) { *static_cast<volatile char*>(address) = 1; }

// Runs `body` on a thread with the launcher's stack.
template <class Body>
void OnGuardedThread(Body body) {
  LimitThreadStacks();
  std::thread([&] {
    GuardThreadStack();
    body();
  }).join();
}

std::ptrdiff_t Mappings() {
  std::ifstream maps("/proc/self/maps");
  return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
}

// Whether the system can guard a page without a mapping for it.
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

TEST(ThreadStacks, AreOf512KibibytesFromThenOn) {
  EXPECT_EQ(InForkedChild([] {
              LimitThreadStacks();
              std::size_t size = 0;
              std::thread([&] { size = OwnStack().bytes; }).join();
              return size == std::size_t{512} * 1024 ? 0 : 1;
            }),
            0);
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

TEST(ThreadStacks, KeepTheirGuardInAForkedCopy) {
  EXPECT_EQ(InForkedChild([] {
              int status = 0;
              OnGuardedThread([&] {
                const pid_t copy = fork();
                if (copy == 0) {
                  Write(OwnStack().lowest);
                  _exit(0);
                }
                waitpid(copy, &status, 0);
              });
              return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
            }),
            SIGSEGV);
}

// What a fork costs depends on this.
TEST(ThreadStacks, NeedNoMappingEach) {
  if (!HasGuardMarks()) {
    GTEST_SKIP() << "needs Linux 6.13";
  }
  EXPECT_EQ(InForkedChild([] {
              constexpr int kThreads = 64;
              LimitThreadStacks();
              const std::ptrdiff_t before = Mappings();
              std::latch guarded(kThreads);
              std::latch counted(1);
              std::vector<std::thread> threads;
              for (int i = 0; i < kThreads; ++i) {
                threads.emplace_back([&] {
                  GuardThreadStack();
                  guarded.count_down();
                  counted.wait();
                });
              }
              guarded.wait();
              const std::ptrdiff_t more = Mappings() - before;
              counted.count_down();
              for (std::thread& thread : threads) {
                thread.join();
              }
              return more < kThreads ? 0 : 1;
            }),
            0);
}

#endif

}  // namespace
