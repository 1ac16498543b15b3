#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>
#include <vector>

#include "tools/log/History.h"
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
    const auto ran = Lane().ran;
    const auto runs = [&](std::size_t column) {
      return column < ran.size() && ran[column];
    };
    for (std::size_t column = 0; column < ran.size(); ++column) {
      if (runs(column) && (column == 0 || !runs(column - 1))) {
        bounds.push_back(history_.Runs().ColumnStart(column));
      }
      if (runs(column) && !runs(column + 1)) {
        bounds.push_back(history_.Runs().ColumnStart(column));
      }
    }
    return bounds;
  }

  static bool IsNear(Micros a, Micros b) { return std::abs(a - b) < kSecond; }

  const Timeline::Lane& Lane() const { return history_.Runs().lanes.at(0); }

  History history_{{}, true};
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
  EXPECT_TRUE(history_.Runs().lanes.empty());
}

TEST_F(TimelineOf, KeepsEveryEndWhenTimeGrows) {
  constexpr int kEnds = 5000;
  for (int i = 0; i < kEnds; ++i) {
    Add(std::int64_t{i} * i * kSecond, LogEventKind::kEnd, i % 2 * 256);
  }
  std::uint32_t failures = 0;
  std::uint32_t ends = 0;
  for (const auto& [key, count] : Lane().ends) {
    EXPECT_LT(key.first, Timeline::kColumns);
    failures += key.second == EndCause::kFailure ? count : 0;
    ends += count;
  }
  EXPECT_EQ(ends, 5000U);
  EXPECT_EQ(failures, 2500U);
}

TEST_F(TimelineOf, KeepsTheOrderWhenTimeGrows) {
  Add(0, LogEventKind::kEnd, 9);
  Add(3 * kSecond, LogEventKind::kEnd, 0);
  Add(1000 * kSecond, LogEventKind::kEnd, 256);
  std::vector<EndCause> causes;
  std::vector<Micros> times;
  for (const auto& [key, count] : Lane().ends) {
    causes.push_back(key.second);
    times.push_back(history_.Runs().ColumnStart(key.first));
  }
  EXPECT_EQ(causes, (std::vector{EndCause::kKilled, EndCause::kSuccess,
                                 EndCause::kFailure}));
  EXPECT_EQ(times[0], 0);
  EXPECT_LE(times[1], 3 * kSecond);
  EXPECT_GT(times[1], 1 * kSecond);
  EXPECT_LE(times[2], 1000 * kSecond);
  EXPECT_GT(times[2], 998 * kSecond);
}

TEST_F(TimelineOf, CountsTimesBeforeItsOriginAsTheOrigin) {
  Add(100 * kSecond, LogEventKind::kNameless);
  Add(50 * kSecond, LogEventKind::kStart);
  Add(60 * kSecond, LogEventKind::kEnd);
  EXPECT_EQ(history_.Runs().origin, 100 * kSecond);
  const auto& ends = Lane().ends;
  ASSERT_EQ(ends.size(), 1U);
  EXPECT_EQ(ends.begin()->first, std::pair(std::size_t{0}, EndCause::kSuccess));
  EXPECT_EQ(ends.begin()->second, 1U);
  EXPECT_EQ(Runs().front(), 100 * kSecond);
}

TEST_F(TimelineOf, BeginsAtTheFirstLineEvenIfItIsAnEnd) {
  constexpr Micros kLate = 1795242031 * kSecond;
  Add(kLate, LogEventKind::kEnd, 256);
  Add(kLate + kSecond, LogEventKind::kEnd, 256);
  EXPECT_EQ(history_.Runs().origin, kLate);
  EXPECT_LE(history_.Runs().column_span, kSecond / 500);
  EXPECT_EQ(Lane().ends.size(), 2U);
}

TEST_F(TimelineOf, AddsRunsThatHaveNotEnded) {
  Add(0, LogEventKind::kEnd, 256);
  Add(10 * kSecond, LogEventKind::kStart);
  Add(90 * kSecond, LogEventKind::kNameless);
  history_.AddOpenRuns();
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
  history_.AddOpenRuns();
  EXPECT_TRUE(IsNear(Runs().back(), 30 * kSecond));
}

TEST_F(TimelineOf, AddsNoRunAfterAStop) {
  Add(0, LogEventKind::kStart);
  Add(10 * kSecond, LogEventKind::kEnd, 9);
  Add(90 * kSecond, LogEventKind::kNameless);
  history_.AddOpenRuns();
  EXPECT_TRUE(IsNear(Runs().back(), 10 * kSecond));
}

TEST_F(TimelineOf, AddsNoOpenRunOfAnEarlierLauncher) {
  Add(0, LogEventKind::kStart, 0, 10);
  Add(50 * kSecond, LogEventKind::kStart, 0, 20);
  Add(60 * kSecond, LogEventKind::kEnd, 256, 20);
  Add(60 * kSecond + 50'000, LogEventKind::kStart, 0, 20);
  Add(90 * kSecond, LogEventKind::kNameless, 0, 20);
  history_.AddOpenRuns();
  const auto runs = Runs();
  ASSERT_GE(runs.size(), 2U);
  EXPECT_TRUE(IsNear(runs.front(), 50 * kSecond));
  EXPECT_TRUE(IsNear(runs.back(), 90 * kSecond));
}

}  // namespace
