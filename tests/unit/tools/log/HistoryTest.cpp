#include <gtest/gtest.h>

#include "tools/log/History.h"

namespace {

constexpr LogMicros kSecond = kMicrosPerSecond;
constexpr LogMicros kStart = 1'000'000 * kSecond;

class HistoryOf : public testing::Test {
 protected:
  // At `seconds`, on a supervision thread of launcher 10.
  void Add(double seconds, LogEventKind kind, const std::string& name = "a",
           int status = 0, std::int64_t thread = 11,
           std::int64_t process = 10) {
    LogEvent event;
    event.time = At(seconds);
    event.kind = kind;
    event.name = name;
    event.status = status;
    event.process = process;
    event.thread = thread;
    history_.Add(event);
  }
  void End(double seconds, int status = 256) {
    Add(seconds, LogEventKind::kEnd, "a", status);
  }

  static LogMicros At(double seconds) {
    return kStart + static_cast<LogMicros>(seconds * kSecond);
  }
  const ItemHistory& Item(std::size_t index = 0) const {
    return history_.Items().at(index);
  }

  std::vector<ProgramRun> runs_;
  History history_{[this](const ProgramRun& run) { runs_.push_back(run); }};
};

TEST_F(HistoryOf, CountsLoggedStartsAndEnds) {
  Add(0, LogEventKind::kStart);
  End(2);
  Add(2.05, LogEventKind::kStart);
  EXPECT_EQ(Item().Starts(), 2U);
  EXPECT_FALSE(Item().HasDerivedStarts());
  EXPECT_EQ(Item().ends, 1U);
  EXPECT_EQ(Item().longest, 2 * kSecond);
  EXPECT_EQ(Item().last_end, At(2));
  EXPECT_EQ(Item().last_status, 256);
}

TEST_F(HistoryOf, DerivesStartsFromEnds) {
  End(0);
  EXPECT_TRUE(Item().HasDerivedStarts());
  EXPECT_FALSE(Item().longest);
  End(3.05);
  EXPECT_EQ(Item().longest, 3 * kSecond);
  ASSERT_EQ(runs_.size(), 2U);
  EXPECT_FALSE(runs_[0].start);
  EXPECT_EQ(runs_[1].start, At(0.05));
  EXPECT_EQ(runs_[1].end, At(3.05));
}

TEST_F(HistoryOf, KeepsTheLongestLife) {
  for (const double end : {0.0, 5.0, 6.0, 8.0}) {
    End(end);
  }
  EXPECT_EQ(Item().longest, At(5) - At(0.05));
}

TEST_F(HistoryOf, TellsSupervisorsOfOneNameApart) {
  Add(0, LogEventKind::kStart, "a", 0, 11, 10);
  Add(4, LogEventKind::kStart, "a", 0, 21, 20);
  Add(5, LogEventKind::kEnd, "a", 0, 21, 20);
  EXPECT_EQ(Item().longest, 1 * kSecond);
  EXPECT_EQ(history_.LauncherCount(), 2U);
  EXPECT_EQ(history_.Items().size(), 1U);
}

TEST_F(HistoryOf, CountsEndsInAnyMinute) {
  for (int i = 0; i < 10; ++i) {
    End(i);
  }
  End(59);
  End(60);
  EXPECT_EQ(Item().rate.Worst(), 11U);
  EXPECT_EQ(Item().rate.At(At(60) / kSecond), 11U);
  EXPECT_EQ(Item().rate.At(At(68) / kSecond), 3U);
  EXPECT_EQ(Item().rate.At(At(118) / kSecond), 2U);
  EXPECT_EQ(Item().rate.At(At(119) / kSecond), 1U);
  EXPECT_EQ(Item().rate.At(At(120) / kSecond), 0U);
  End(1000);
  EXPECT_EQ(Item().rate.Worst(), 11U);
  EXPECT_EQ(Item().rate.At(At(1000) / kSecond), 1U);
}

TEST_F(HistoryOf, TellsARunningItem) {
  End(0);
  EXPECT_EQ(Item().StateAt(At(100)), ItemState::kRunning);
  EXPECT_TRUE(Item().HasDerivedState());
  Add(0.05, LogEventKind::kStart);
  EXPECT_EQ(Item().StateAt(At(100)), ItemState::kRunning);
  EXPECT_FALSE(Item().HasDerivedState());
}

TEST_F(HistoryOf, TellsALoopingItem) {
  for (int i = 0; i < 4; ++i) {
    End(i);
  }
  EXPECT_NE(Item().StateAt(At(4)), ItemState::kLooping);
  End(4);
  EXPECT_EQ(Item().StateAt(At(4)), ItemState::kLooping);
  EXPECT_NE(Item().StateAt(At(80)), ItemState::kLooping);
}

TEST_F(HistoryOf, TellsAPausingItemFromASilentOne) {
  Add(0, LogEventKind::kStart);
  End(1);
  EXPECT_EQ(Item().StateAt(At(2)), ItemState::kPausing);
  EXPECT_EQ(Item().StateAt(At(2.1)), ItemState::kSilent);
  EXPECT_FALSE(Item().HasDerivedState());
}

TEST_F(HistoryOf, TellsThatALoopHasEnded) {
  for (int i = 0; i < 20; ++i) {
    Add(i, LogEventKind::kStart);
    End(i + 0.5);
  }
  EXPECT_EQ(Item().StateAt(At(20)), ItemState::kLooping);
  EXPECT_EQ(Item().StateAt(At(21)), ItemState::kSilent);
}

TEST_F(HistoryOf, JudgesByTheLatestLauncherWhetherStartsAreLogged) {
  Add(0, LogEventKind::kStart);
  End(1, 9);
  Add(5, LogEventKind::kEnd, "a", 256, 21, 20);
  EXPECT_EQ(Item().StateAt(At(100)), ItemState::kRunning);
  EXPECT_TRUE(Item().HasDerivedState());
}

TEST_F(HistoryOf, TakesAKilledItemForSilentWhereStartsAreNotLogged) {
  End(1, 9);
  EXPECT_EQ(Item().StateAt(At(2)), ItemState::kRunning);
  EXPECT_EQ(Item().StateAt(At(2.1)), ItemState::kSilent);
  EXPECT_TRUE(Item().HasDerivedState());
}

TEST_F(HistoryOf, TellsAFailedFork) {
  Add(0, LogEventKind::kForkFailed);
  EXPECT_EQ(Item().StateAt(At(1)), ItemState::kNoFork);
  EXPECT_EQ(Item().failed_forks, 1U);
}

TEST_F(HistoryOf, TellsAnEmptyProgramPath) {
  Add(0, LogEventKind::kNoProgram, "a", 0, 12, 12);
  EXPECT_EQ(Item().StateAt(At(1)), ItemState::kNoProgram);
  EXPECT_EQ(history_.LauncherCount(), 0U);
}

TEST_F(HistoryOf, TellsAChainByItsCopies) {
  Add(0, LogEventKind::kStart);
  Add(0.05, LogEventKind::kStart, "a", 0, 12, 12);
  Add(0.1, LogEventKind::kStart, "a", 0, 13, 13);
  EXPECT_EQ(Item().StateAt(At(1)), ItemState::kChain);
  EXPECT_EQ(Item().copies, 2U);
  EXPECT_EQ(Item().Starts(), 1U);
  EXPECT_EQ(history_.LauncherCount(), 1U);
}

TEST_F(HistoryOf, CountsWhatIsNotAboutOneItem) {
  Add(0, LogEventKind::kNameless, "", 0, 10, 10);
  Add(1, LogEventKind::kUnparsable, "", 0, 20, 20);
  LogEvent lost;
  lost.kind = LogEventKind::kLost;
  lost.time = At(5);
  lost.lost = 7;
  history_.Add(lost);
  history_.AddUnreadable();
  EXPECT_EQ(history_.NamelessItems(), 1U);
  EXPECT_EQ(history_.FailedLaunches(), 1U);
  EXPECT_EQ(history_.LostLines(), 7U);
  EXPECT_EQ(history_.UnreadableLines(), 1U);
  EXPECT_EQ(history_.Lines(), 3U);
  EXPECT_EQ(history_.First(), At(0));
  EXPECT_EQ(history_.Last(), At(5));
  const auto launchers = history_.Launchers();
  ASSERT_EQ(launchers.size(), 2U);
  EXPECT_EQ(launchers.back().process, 20);
}

TEST_F(HistoryOf, KeepsTheLatestLaunchersAndCountsAll) {
  constexpr int kMany = 1000;
  for (int i = 0; i < kMany; ++i) {
    Add(i, LogEventKind::kEnd, "a", 0, 1, i + 2);
  }
  EXPECT_EQ(history_.LauncherCount(), 1000U);
  EXPECT_LT(history_.Launchers().size(), 1000U);
  EXPECT_EQ(history_.Launchers().back().process, kMany + 1);
  EXPECT_LE(Item().supervisors.size(), 16U);
}

}  // namespace
