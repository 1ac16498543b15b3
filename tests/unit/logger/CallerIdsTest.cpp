#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <thread>
#include <vector>

#include "logger/CallerIds.h"
#include "logger/ThreadId.h"
#include "tests/support/Coverage.h"

namespace {

class CallerIdsTest : public testing::Test {
 protected:
  CallerIdsTest() { EXPECT_EQ(WatchForks(), 0); }
};

TEST_F(CallerIdsTest, AreTheProcessAndTheThread) {
  for (int call = 0; call < 2; ++call) {
    EXPECT_EQ(GetCallerIds().process, getpid());
    EXPECT_EQ(GetCallerIds().thread, ThreadId());
  }
}

TEST_F(CallerIdsTest, TellThreadsApart) {
  std::set<std::uint64_t> threads{GetCallerIds().thread};
  for (int i = 0; i < 3; ++i) {
    std::thread([&] {
      EXPECT_EQ(GetCallerIds().process, getpid());
      threads.insert(GetCallerIds().thread);
    }).join();
  }
  EXPECT_GE(threads.size(), 2U);
  EXPECT_EQ(threads.count(ThreadId()), 1U);
}

TEST_F(CallerIdsTest, AreAForkedCopysOwnInTheCopy) {
  std::thread([] {
    const CallerIds before = GetCallerIds();
    const pid_t copy = fork();
    if (copy == 0) {
      const CallerIds ids = GetCallerIds();
      const bool own = ids.process == getpid() &&
                       ids.thread == static_cast<std::uint64_t>(getpid());
      KeepCoverage();
      _exit(own ? 0 : 1);
    }
    int status = -1;
    waitpid(copy, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(GetCallerIds().process, before.process);
    EXPECT_EQ(GetCallerIds().thread, before.thread);
  }).join();
}

}  // namespace
