#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

#include "tools/log/Timeline.h"

namespace {

constexpr LogMicros kSecond = kMicrosPerSecond;

class TimelineOf : public testing::Test {
 protected:
  void Add(LogMicros time, LogEventKind kind, int status = 0,
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
  std::vector<LogMicros> Runs() const {
    std::vector<LogMicros> bounds;
    for (const auto& [first, last] : timeline_.Find(0).runs) {
      bounds.push_back(timeline_.ColumnStart(first));
      bounds.push_back(timeline_.ColumnStart(last));
    }
    return bounds;
  }

  static bool IsNear(LogMicros a, LogMicros b) {
    return std::abs(a - b) < kSecond;
  }

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

TEST_F(TimelineOf, HasAnEmptyLaneForAnItemThatNeitherRanNorEnded) {
  EXPECT_TRUE(timeline_.Find(0).runs.empty());
  EXPECT_TRUE(timeline_.Find(0).ends.empty());
}

TEST_F(TimelineOf, KeepsEveryEndWhenTimeGrows) {
  constexpr int kEnds = 5000;
  for (int i = 0; i < kEnds; ++i) {
    Add(std::int64_t{i} * i * kSecond, LogEventKind::kEnd, i % 2 * 256);
  }
  std::uint32_t failures = 0;
  std::uint32_t ends = 0;
  for (const Timeline::Ends& some : timeline_.Find(0).ends) {
    EXPECT_LT(some.column, Timeline::kColumns);
    failures += some.counts[static_cast<std::size_t>(EndCause::kFailure)];
    ends += some.Sum();
  }
  EXPECT_EQ(ends, 5000U);
  EXPECT_EQ(failures, 2500U);
}

TEST_F(TimelineOf, KeepsTheOrderWhenTimeGrows) {
  Add(0, LogEventKind::kEnd, 9);
  Add(3 * kSecond, LogEventKind::kEnd, 0);
  Add(1000 * kSecond, LogEventKind::kEnd, 256);
  std::vector<std::size_t> causes;
  std::vector<LogMicros> times;
  for (const Timeline::Ends& ends : timeline_.Find(0).ends) {
    for (std::size_t cause = 0; cause < kEndCauses; ++cause) {
      if (ends.counts[cause] > 0) {
        causes.push_back(cause);
        times.push_back(timeline_.ColumnStart(ends.column));
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
  timeline_.Begin(100 * kSecond);
  Add(50 * kSecond, LogEventKind::kStart);
  Add(60 * kSecond, LogEventKind::kEnd);
  EXPECT_EQ(timeline_.Origin(), 100 * kSecond);
  EXPECT_EQ(timeline_.Find(0).ends.front().Sum(), 1U);
  EXPECT_EQ(timeline_.Find(0).ends.front().column, 0U);
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

// Against a lane of a flag and a number for each column.
TEST(TimelineLane, KeepsRunsAndEndsInOrder) {
  constexpr std::size_t kColumns = 40;
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    Timeline::Lane lane;
    std::array<bool, kColumns> ran{};
    std::array<std::uint32_t, kColumns> ends{};
    for (int i = 0; i < 12; ++i) {
      const std::size_t first = random() % kColumns;
      const std::size_t last = std::min(first + random() % 6, kColumns - 1);
      lane.Add(Timeline::Run{first, last});
      std::fill(&ran[first], &ran[last] + 1, true);
      lane.Add(Timeline::Ends{last, {1}});
      ++ends[last];
    }
    std::array<bool, kColumns> shown{};
    std::size_t free_from = 0;
    for (const auto& [first, last] : lane.runs) {
      ASSERT_GE(first, free_from);
      ASSERT_LE(first, last);
      std::fill(&shown[first], &shown[last] + 1, true);
      free_from = last + 2;
    }
    ASSERT_EQ(shown, ran);
    std::array<std::uint32_t, kColumns> counted{};
    for (const Timeline::Ends& some : lane.ends) {
      ASSERT_EQ(counted[some.column], 0U);
      counted[some.column] = some.Sum();
    }
    ASSERT_EQ(counted, ends);
    ASSERT_TRUE(std::ranges::is_sorted(lane.ends, {}, &Timeline::Ends::column));
  }
}

}  // namespace
