#include <gtest/gtest.h>

#include <cstdlib>
#include <numeric>

#include "tools/log/Timeline.h"

namespace {

constexpr Micros kSecond = kMicrosPerSecond;

class TimelineOf : public testing::Test {
 protected:
  void Add(Micros time, LogEventKind kind, int status = 0,
           std::int64_t process = 1) {
    LogEvent event;
    event.time = time;
    event.kind = kind;
    event.name = "a";
    event.status = status;
    event.process = process;
    event.thread = process + 1;
    history_.Add(event);
  }

  // When each run begins, and its last column, in order.
  std::vector<Micros> Runs() {
    std::vector<Micros> bounds;
    const auto ran = timeline_.lanes[0].ran;
    const auto runs = [&](std::size_t column) {
      return column < ran.size() && ran[column];
    };
    for (std::size_t column = 0; column < ran.size(); ++column) {
      if (runs(column) && (column == 0 || !runs(column - 1))) {
        bounds.push_back(timeline_.ColumnStart(column));
      }
      if (runs(column) && !runs(column + 1)) {
        bounds.push_back(timeline_.ColumnStart(column));
      }
    }
    return bounds;
  }

  static bool IsNear(Micros a, Micros b) { return std::abs(a - b) < kSecond; }

  Timeline timeline_;
  History history_{{}, [this](const ProgramRun& run) { timeline_.Add(run); }};
};

TEST_F(TimelineOf, KnowsWhenAnItemRan) {
  Add(0, LogEventKind::kStart);
  Add(10 * kSecond, LogEventKind::kEnd);
  Add(50 * kSecond, LogEventKind::kStart);
  Add(60 * kSecond, LogEventKind::kEnd);
  const auto runs = Runs();
  ASSERT_EQ(runs.size(), 4U);
  EXPECT_EQ(runs[0], 0);
  EXPECT_TRUE(IsNear(runs[1], 10 * kSecond));
  EXPECT_TRUE(IsNear(runs[2], 50 * kSecond));
  EXPECT_TRUE(IsNear(runs[3], 60 * kSecond));
}

TEST_F(TimelineOf, HasNoLaneForAnItemThatNeitherRanNorEnded) {
  Add(0, LogEventKind::kForkFailed);
  EXPECT_TRUE(timeline_.lanes.empty());
}

TEST_F(TimelineOf, KeepsEveryEndWhenTimeGrows) {
  constexpr int kEnds = 5000;
  for (int i = 0; i < kEnds; ++i) {
    Add(std::int64_t{i} * i * kSecond, LogEventKind::kEnd, i % 2 * 256);
  }
  std::uint32_t failures = 0;
  std::uint32_t ends = 0;
  for (const auto& [column, counts] : timeline_.lanes[0].ends) {
    EXPECT_LT(column, Timeline::kColumns);
    failures += counts[static_cast<std::size_t>(EndCause::kFailure)];
    ends += std::reduce(counts.begin(), counts.end());
  }
  EXPECT_EQ(ends, 5000U);
  EXPECT_EQ(failures, 2500U);
}

TEST_F(TimelineOf, KeepsTheOrderWhenTimeGrows) {
  Add(0, LogEventKind::kEnd, 9);
  Add(3 * kSecond, LogEventKind::kEnd, 0);
  Add(1000 * kSecond, LogEventKind::kEnd, 256);
  std::vector<std::size_t> causes;
  std::vector<Micros> times;
  for (const auto& [column, ends] : timeline_.lanes[0].ends) {
    for (std::size_t cause = 0; cause < kEndCauses; ++cause) {
      if (ends[cause] > 0) {
        causes.push_back(cause);
        times.push_back(timeline_.ColumnStart(column));
      }
    }
  }
  EXPECT_EQ(causes, (std::vector<std::size_t>{2, 0, 1}));
  EXPECT_EQ(times[0], 0);
  EXPECT_LE(times[1], 3 * kSecond);
  EXPECT_GT(times[1], 1 * kSecond);
  EXPECT_LE(times[2], 1000 * kSecond);
  EXPECT_GT(times[2], 998 * kSecond);
}

TEST_F(TimelineOf, CountsTimesBeforeItsOriginAsTheOrigin) {
  timeline_.origin = 100 * kSecond;
  Add(50 * kSecond, LogEventKind::kStart);
  Add(60 * kSecond, LogEventKind::kEnd);
  EXPECT_EQ(timeline_.origin, 100 * kSecond);
  const auto& ends = timeline_.lanes[0].ends;
  ASSERT_EQ(ends.size(), 1U);
  EXPECT_EQ(ends.begin()->first, 0U);
  EXPECT_EQ(ends.begin()->second[0], 1U);
  EXPECT_EQ(Runs().front(), 100 * kSecond);
}

TEST_F(TimelineOf, AddsRunsThatHaveNotEnded) {
  Add(0, LogEventKind::kEnd, 256);
  Add(10 * kSecond, LogEventKind::kStart);
  Add(90 * kSecond, LogEventKind::kNameless);
  timeline_.AddOpenRuns(history_);
  const auto runs = Runs();
  ASSERT_EQ(runs.size(), 2U);
  EXPECT_TRUE(IsNear(runs[0], 10 * kSecond));
  EXPECT_TRUE(IsNear(runs[1], 90 * kSecond));
}

TEST_F(TimelineOf, AddsTheOpenRunOfALoopingItem) {
  for (int i = 0; i < 10; ++i) {
    Add(i * kSecond, LogEventKind::kEnd, 256);
  }
  Add(10 * kSecond, LogEventKind::kStart);
  Add(30 * kSecond, LogEventKind::kNameless);
  timeline_.AddOpenRuns(history_);
  EXPECT_TRUE(IsNear(Runs().back(), 30 * kSecond));
}

TEST_F(TimelineOf, AddsNoRunAfterAStop) {
  Add(0, LogEventKind::kStart);
  Add(10 * kSecond, LogEventKind::kEnd, 9);
  Add(90 * kSecond, LogEventKind::kNameless);
  timeline_.AddOpenRuns(history_);
  EXPECT_TRUE(IsNear(Runs().back(), 10 * kSecond));
}

TEST_F(TimelineOf, AddsNoOpenRunOfAnEarlierLauncher) {
  Add(0, LogEventKind::kStart, 0, 10);
  Add(50 * kSecond, LogEventKind::kStart, 0, 20);
  Add(60 * kSecond, LogEventKind::kEnd, 256, 20);
  Add(60 * kSecond + 50'000, LogEventKind::kStart, 0, 20);
  Add(90 * kSecond, LogEventKind::kNameless, 0, 20);
  timeline_.AddOpenRuns(history_);
  const auto runs = Runs();
  ASSERT_GE(runs.size(), 2U);
  EXPECT_TRUE(IsNear(runs.front(), 50 * kSecond));
  EXPECT_TRUE(IsNear(runs.back(), 90 * kSecond));
}

}  // namespace
