#include <gtest/gtest.h>
#include <unistd.h>

#include <set>
#include <thread>

#include "logger/ThreadId.h"
#include "tests/support/ForkedChild.h"

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

TEST_F(CallerIdsTest, DifferBetweenThreads) {
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

TEST_F(CallerIdsTest, AreTheChildsOwnInAForkedChild) {
  std::thread([] {
    const CallerIds before = GetCallerIds();
    EXPECT_EQ(InForkedChild([] {
                const CallerIds ids = GetCallerIds();
                return ids.process == getpid() &&
                               ids.thread ==
                                   static_cast<std::uint64_t>(getpid())
                           ? 0
                           : 1;
              }),
              0);
    EXPECT_EQ(GetCallerIds().process, before.process);
    EXPECT_EQ(GetCallerIds().thread, before.thread);
  }).join();
}

}  // namespace
