#include <gtest/gtest.h>

#include "logger/Burst.h"

namespace {

using Look = Burst::Look;
using std::chrono::microseconds;
using std::chrono::seconds;

constexpr off_t kMuchRoom = 10'000'000;

// At times near now: a line was written just now.
class BurstTest : public testing::Test {
 protected:
  BurstTest() {
    burst_.Wrote();
    burst_.Looked(now_, kMuchRoom);
  }

  Burst burst_;
  const Burst::Clock::time_point now_ = Burst::Clock::now();
};

TEST_F(BurstTest, NeedsALookAtFirst) {
  EXPECT_EQ(Burst().Needed(now_), Look::kAtPath);
}

TEST_F(BurstTest, SparesTheLookAtALineRightAfterAnother) {
  EXPECT_EQ(burst_.Needed(now_), Look::kAtNothing);
}

TEST_F(BurstTest, NeedsALookAfterAPause) {
  const auto later = Burst::Clock::now() + microseconds(2);
  EXPECT_EQ(burst_.Needed(later), Look::kAtPath);
}

TEST_F(BurstTest, NeedsALookWhenTheLastIsOld) {
  burst_.Looked(now_ - microseconds(101), kMuchRoom);
  EXPECT_EQ(burst_.Needed(now_), Look::kAtPath);
}

TEST_F(BurstTest, NeedsALookWhenTheClockWasSetBack) {
  EXPECT_EQ(burst_.Needed(now_ - seconds(10)), Look::kAtPath);
}

TEST_F(BurstTest, NeedsALookWhenStopped) {
  burst_.Stop();
  EXPECT_EQ(burst_.Needed(now_), Look::kAtPath);
}

TEST_F(BurstTest, WatchesTheSizeOfAFileThatIsNearlyFull) {
  constexpr off_t kLittleRoom = 500'000;
  burst_.Looked(now_, kLittleRoom);
  EXPECT_EQ(burst_.Needed(now_), Look::kAtSize);
  burst_.Looked(now_ + Burst::Clock::duration(1), kLittleRoom);
  EXPECT_EQ(burst_.Needed(now_), Look::kAtSize);
  burst_.Looked(now_ + Burst::Clock::duration(1), kMuchRoom);
  EXPECT_EQ(burst_.Needed(now_), Look::kAtNothing);
}

}  // namespace
