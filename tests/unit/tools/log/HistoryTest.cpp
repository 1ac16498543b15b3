#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

#include "tools/log/History.h"

namespace {

constexpr Micros kSecond = kMicrosPerSecond;
constexpr Micros kStart = 1'000'000 * kSecond;

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
    history_->Add(event);
  }
  void End(double seconds, int status = 256) {
    Add(seconds, LogEventKind::kEnd, "a", status);
  }

  static Micros At(double seconds) {
    return kStart + static_cast<Micros>(seconds * kSecond);
  }
  const ItemHistory& Item(std::size_t index = 0) const {
    const Present all{0, [](std::int64_t) { return true; }};
    return history_->Items(all).at(index).history;
  }
  static Present AtWith(double seconds, std::int64_t process) {
    return {At(seconds), [process](std::int64_t id) { return id == process; }};
  }
  // The first item that is shown while `process` exists.
  ItemNow Now(double seconds, std::int64_t process) const {
    return history_->Items(AtWith(seconds, process)).at(0);
  }
  // The names of the items that are shown while `process` exists.
  std::vector<std::string> Shown(double seconds, std::int64_t process) const {
    std::vector<std::string> names;
    for (const ItemNow& item : history_->Items(AtWith(seconds, process))) {
      names.push_back(item.history.name);
    }
    return names;
  }
  void Select(Selection selection) {
    history_ = std::make_unique<History>(std::move(selection), true);
  }

  std::unique_ptr<History> history_ =
      std::make_unique<History>(Selection{}, true);
};

TEST_F(HistoryOf, CountsLoggedStartsAndEnds) {
  Add(0, LogEventKind::kStart);
  End(2);
  Add(2.05, LogEventKind::kStart);
  EXPECT_EQ(Item().Starts(), 2U);
  EXPECT_TRUE(Item().logs_starts);
  EXPECT_EQ(Item().ends, 1U);
  EXPECT_EQ(Item().longest_ended, 2 * kSecond);
  EXPECT_EQ(Item().last_end.time, At(2));
  EXPECT_EQ(Item().last_end.status, 256);
}

TEST_F(HistoryOf, DerivesStartsFromEnds) {
  End(0);
  EXPECT_FALSE(Item().logs_starts);
  EXPECT_FALSE(Item().longest_ended);
  EXPECT_EQ(Item().RunStart(), At(0.05));
  EXPECT_TRUE(history_->Runs().lanes.at(0).ran.none());
  End(3.05);
  EXPECT_EQ(Item().longest_ended, 3 * kSecond);
  EXPECT_EQ(Item().RunStart(), At(3.1));
  const Timeline& runs = history_->Runs();
  for (std::size_t i = 0; i < Timeline::kColumns; ++i) {
    EXPECT_EQ(runs.lanes.at(0).ran[i], runs.ColumnStart(i + 1) > At(0.05) &&
                                           runs.ColumnStart(i) <= At(3.05))
        << i;
  }
}

TEST_F(HistoryOf, FillsTheTimelineOnlyIfItHasOne) {
  history_ = std::make_unique<History>();
  End(0);
  End(3.05);
  EXPECT_TRUE(history_->Runs().lanes.empty());
}

TEST_F(HistoryOf, KeepsTheLongestLife) {
  for (const double end : {0.0, 5.0, 6.0, 8.0}) {
    End(end);
  }
  EXPECT_EQ(Item().longest_ended, At(5) - At(0.05));
}

TEST_F(HistoryOf, KeepsTheSupervisorsOfOneNameApart) {
  Add(0, LogEventKind::kStart, "a", 0, 11, 10);
  Add(4, LogEventKind::kStart, "a", 0, 21, 20);
  Add(5, LogEventKind::kEnd, "a", 0, 21, 20);
  EXPECT_EQ(Item().longest_ended, 1 * kSecond);
  EXPECT_EQ(history_->Totals().launchers, 2U);
  EXPECT_EQ(Shown(100, 10).size(), 1U);
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

TEST_F(HistoryOf, CountsAnEarlierEndInTheLatestSecond) {
  End(100);
  End(10);
  EXPECT_EQ(Item().rate.Worst(), 2U);
  EXPECT_EQ(Item().rate.At(At(159) / kSecond), 2U);
  EXPECT_EQ(Item().rate.At(At(160) / kSecond), 0U);
}

TEST_F(HistoryOf, RecognisesARunningItem) {
  End(0);
  EXPECT_EQ(Item().StateAt(At(100)), ItemState::kRunning);
  EXPECT_TRUE(Item().HasDerivedState());
  Add(0.05, LogEventKind::kStart);
  EXPECT_EQ(Item().StateAt(At(100)), ItemState::kRunning);
  EXPECT_FALSE(Item().HasDerivedState());
}

TEST_F(HistoryOf, RecognisesALoopingItem) {
  for (int i = 0; i < 4; ++i) {
    End(i);
  }
  EXPECT_NE(Item().StateAt(At(4)), ItemState::kLooping);
  End(4);
  EXPECT_EQ(Item().StateAt(At(4)), ItemState::kLooping);
  EXPECT_NE(Item().StateAt(At(80)), ItemState::kLooping);
}

TEST_F(HistoryOf, DistinguishesAPausingItemFromASilentOne) {
  Add(0, LogEventKind::kStart);
  End(1);
  EXPECT_EQ(Item().StateAt(At(2)), ItemState::kPausing);
  EXPECT_EQ(Now(2, 10).state, ItemState::kPausing);
  EXPECT_EQ(Now(2, 20).state, ItemState::kSilent) << "the launcher is gone";
  EXPECT_EQ(Item().StateAt(At(2.1)), ItemState::kSilent);
  EXPECT_FALSE(Item().HasDerivedState());
}

TEST_F(HistoryOf, RecognisesTheEndOfALoop) {
  for (int i = 0; i < 20; ++i) {
    Add(i, LogEventKind::kStart);
    End(i + 0.5);
  }
  EXPECT_EQ(Item().StateAt(At(20)), ItemState::kLooping);
  EXPECT_EQ(Item().StateAt(At(21)), ItemState::kSilent);
}

TEST_F(HistoryOf, LooksAtTheLatestLauncherForLoggedStarts) {
  Add(0, LogEventKind::kStart);
  End(1, 9);
  Add(5, LogEventKind::kEnd, "a", 256, 21, 20);
  EXPECT_EQ(Item().StateAt(At(100)), ItemState::kRunning);
  EXPECT_TRUE(Item().HasDerivedState());
}

TEST_F(HistoryOf, TreatsAKilledItemAsSilentWhereStartsAreNotLogged) {
  End(1, 9);
  EXPECT_EQ(Item().StateAt(At(2)), ItemState::kRunning);
  EXPECT_EQ(Item().StateAt(At(2.1)), ItemState::kSilent);
  EXPECT_TRUE(Item().HasDerivedState());
}

TEST_F(HistoryOf, RecognisesAFailedFork) {
  Add(0, LogEventKind::kForkFailed);
  EXPECT_EQ(Item().StateAt(At(1)), ItemState::kNoFork);
  EXPECT_EQ(Item().failed_forks, 1U);
}

TEST_F(HistoryOf, RecognisesAnEmptyProgramPath) {
  Add(0, LogEventKind::kNoProgram, "a", 0, 12, 12);
  EXPECT_EQ(Item().StateAt(At(1)), ItemState::kNoProgram);
  EXPECT_EQ(history_->Totals().launchers, 0U);
}

TEST_F(HistoryOf, RecognisesAChainByItsLinks) {
  Add(0, LogEventKind::kStart);
  Add(0.05, LogEventKind::kStart, "a", 0, 12, 12);
  Add(0.1, LogEventKind::kStart, "a", 0, 13, 13);
  EXPECT_EQ(Item().StateAt(At(1)), ItemState::kChain);
  EXPECT_EQ(Item().chained_starts, 2U);
  EXPECT_EQ(Item().Starts(), 1U);
  EXPECT_EQ(history_->Totals().launchers, 1U);
}

TEST_F(HistoryOf, CountsEventsThatConcernNoItem) {
  Add(0, LogEventKind::kNameless, "", 0, 10, 10);
  Add(1, LogEventKind::kParseFailed, "", 0, 20, 20);
  LogEvent lost;
  lost.kind = LogEventKind::kLost;
  lost.time = At(5);
  lost.lost = 7;
  lost.error = ENOSPC;
  history_->Add(lost);
  history_->AddUnrecognised();
  EXPECT_EQ(history_->Totals().nameless, 1U);
  EXPECT_EQ(history_->Totals().parse_failed, 1U);
  EXPECT_EQ(history_->Totals().lost, 7U);
  EXPECT_EQ(history_->Totals().lost_error, ENOSPC);
  EXPECT_EQ(history_->Totals().unrecognised, 1U);
  EXPECT_EQ(history_->Totals().lines, 3U);
  EXPECT_EQ(history_->Totals().first, At(0));
  EXPECT_EQ(history_->Totals().last, At(5));
  const auto launchers = history_->Launchers();
  ASSERT_EQ(launchers.size(), 2U);
  EXPECT_EQ(launchers.back().process, 20);
}

TEST_F(HistoryOf, KeepsTheLatestLaunchersAndCountsAll) {
  constexpr int kMany = 1000;
  for (int i = 0; i < kMany; ++i) {
    Add(i, LogEventKind::kEnd, "a", 0, 1, i + 2);
  }
  EXPECT_EQ(history_->Totals().launchers, 1000U);
  EXPECT_LT(history_->Launchers().size(), 1000U);
  EXPECT_EQ(history_->Launchers().back().process, kMany + 1);
  EXPECT_LE(Item().supervisors.size(), 16U);
}

TEST_F(HistoryOf, KnowsHowLongAnItemHasRun) {
  Add(0, LogEventKind::kStart);
  EXPECT_EQ(Now(30, 10).uptime, 30 * kSecond);
  EXPECT_EQ(Now(30, 10).longest, 30 * kSecond);
  End(40);
  EXPECT_FALSE(Now(40, 10).uptime);
  EXPECT_EQ(Now(40, 10).longest, 40 * kSecond);
  Add(41, LogEventKind::kStart);
  EXPECT_EQ(Now(43, 10).uptime, 2 * kSecond);
  EXPECT_EQ(Now(43, 10).longest, 40 * kSecond);
}

TEST_F(HistoryOf, DerivesTheUptimeFromTheLastEnd) {
  End(0);
  EXPECT_EQ(Now(10.05, 10).uptime, 10 * kSecond);
}

TEST_F(HistoryOf, RecognisesThatTheLauncherIsGone) {
  Add(0, LogEventKind::kStart);
  EXPECT_EQ(Now(5, 10).state, ItemState::kRunning);
  EXPECT_EQ(Now(5, 20).state, ItemState::kGone);
  EXPECT_FALSE(Now(5, 20).uptime);
  for (int i = 5; i < 15; ++i) {
    End(i);
    Add(i + 0.1, LogEventKind::kStart);
  }
  EXPECT_EQ(Now(15, 10).state, ItemState::kLooping);
  EXPECT_TRUE(Now(15, 10).uptime);
  EXPECT_EQ(Now(15, 20).state, ItemState::kGone);
}

TEST_F(HistoryOf, KeepsASilentItemSilentWhenTheLauncherIsGone) {
  Add(0, LogEventKind::kStart);
  End(5, 9);
  EXPECT_EQ(Now(10, 20).state, ItemState::kSilent);
}

TEST_F(HistoryOf, TalliesTheStatuses) {
  for (const int status : {256, 9, 256}) {
    End(status, status);
  }
  EXPECT_EQ(Item().statuses, (std::map<int, std::uint64_t>{{9, 1}, {256, 2}}));
}

TEST_F(HistoryOf, KeepsHealthyItemsThatTheSelectionPrecedes) {
  Select({At(100), {}});
  Add(0, LogEventKind::kStart, "old", 0, 21, 20);
  Add(1, LogEventKind::kStart, "healthy");
  Add(2, LogEventKind::kEnd, "healthy", 256);
  Add(2.05, LogEventKind::kStart, "healthy");
  Add(3, LogEventKind::kNameless, "", 0, 10, 10);
  EXPECT_EQ(Shown(200, 10), std::vector<std::string>{"healthy"});
  EXPECT_EQ(Shown(200, 99), std::vector<std::string>{"healthy"});
  EXPECT_EQ(Shown(200, 20), (std::vector<std::string>{"old", "healthy"}));
  EXPECT_EQ(Now(200, 10).uptime, At(200) - At(2.05));
  EXPECT_EQ(Item(1).ends, 0U);
  EXPECT_EQ(Item(1).Starts(), 0U);
  EXPECT_TRUE(Item(1).logs_starts);
  EXPECT_EQ(Item(1).rate.Worst(), 0U);
  EXPECT_TRUE(Item(1).statuses.empty());
  EXPECT_FALSE(Item(1).longest_ended);
  EXPECT_EQ(history_->Totals().lines, 0U);
  EXPECT_EQ(history_->Totals().nameless, 0U);
  EXPECT_TRUE(history_->Totals().has_lines);
  EXPECT_TRUE(history_->Runs().lanes.empty());
  Add(100, LogEventKind::kEnd, "old", 0, 21, 20);
  EXPECT_EQ(Shown(200, 10), (std::vector<std::string>{"old", "healthy"}));
  EXPECT_EQ(Item(0).ends, 1U);
  EXPECT_EQ(history_->Totals().first, At(100));
}

TEST_F(HistoryOf, HoldsOnlySelectedItems) {
  Select({{}, {"x\ny", "missing"}});
  LogEvent event;
  event.kind = LogEventKind::kEnd;
  event.name = "a";
  EXPECT_FALSE(history_->Add(event));
  event.name = "x\\ny";
  EXPECT_TRUE(history_->Add(event));
  event.kind = LogEventKind::kLost;
  EXPECT_TRUE(history_->Add(event));
  EXPECT_EQ(Shown(100, 10).size(), 1U);
  EXPECT_EQ(history_->UnknownNames(), std::vector<std::string>{"missing"});
}

TEST_F(HistoryOf, CountsCutLinesAndFragments) {
  LogEvent event;
  event.kind = LogEventKind::kCut;
  event.fragments = 2;
  history_->Add(event);
  EXPECT_EQ(history_->Totals().cut, 1U);
  EXPECT_EQ(history_->Totals().unrecognised, 2U);
}

TEST_F(HistoryOf, KnowsWhetherALauncherLogsStarts) {
  End(0);
  EXPECT_FALSE(history_->Launchers().back().logs_starts);
  Add(1, LogEventKind::kStart);
  End(2);
  EXPECT_TRUE(history_->Launchers().back().logs_starts);
  EXPECT_EQ(history_->Launchers().back().last, At(2));
}

TEST(StateTexts, AreInTheOrderOfTheStates) {
  for (std::size_t i = 0; i < kStateTexts.size(); ++i) {
    EXPECT_EQ(static_cast<std::size_t>(kStateTexts[i].state), i);
  }
}

}  // namespace
