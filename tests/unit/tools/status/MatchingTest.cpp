#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/TempDir.h"
#include "tests/unit/tools/status/Processes.h"
#include "tools/status/Matching.h"

namespace {

using Words = std::vector<std::string>;

class Matching : public testing::Test {
 protected:
  void Add(const Words& words) {
    ItemStatus item;
    item.program = words[0];
    item.command_line = CommandLine(words);
    launcher_.items.push_back(item);
  }

  // The items' process ids, 0 for those without, after `workers` are given to
  // them.
  std::vector<pid_t> Given(const std::vector<Worker>& workers) {
    Match(workers, &launcher_);
    std::vector<pid_t> ids;
    for (const ItemStatus& item : launcher_.items) {
      ids.push_back(item.worker ? item.worker->process.id : 0);
    }
    return ids;
  }

  LauncherStatus launcher_;
};

using Ids = std::vector<pid_t>;

TEST(WithoutWords, LeavesOutTheFirstWords) {
  const std::string line = CommandLine({"a", "", "c"});
  EXPECT_EQ(WithoutWords(line, 0), line);
  EXPECT_EQ(WithoutWords(line, 1), CommandLine({"", "c"}));
  EXPECT_EQ(WithoutWords(line, 2), CommandLine({"c"}));
  EXPECT_EQ(WithoutWords(line, 3), "");
  EXPECT_EQ(WithoutWords(line, 4), "");
}

TEST(WithoutWords, TakesTextWithoutANulForOneWord) {
  EXPECT_EQ(WithoutWords("title", 1), "");
}

TEST_F(Matching, GivesEachItemTheProcessWithItsArguments) {
  Add({"/a", "x"});
  Add({"/a", "y"});
  Add({"/b"});
  EXPECT_EQ(Given({Working(1, {"/b"}), Working(2, {"/a", "y"}),
                   Working(3, {"/a", "x"})}),
            (Ids{3, 2, 1}));
  EXPECT_EQ(launcher_.items[0].state, ItemState::kRunning);
  EXPECT_TRUE(launcher_.unassigned.empty());
}

TEST_F(Matching, DoesNotTakeOneArgumentWithABlankForTwo) {
  Add({"/a", "x y"});
  Add({"/a", "x", "y"});
  EXPECT_EQ(Given({Working(1, {"/a", "x", "y"}), Working(2, {"/a", "x y"})}),
            (Ids{2, 1}));
}

TEST_F(Matching, GivesEqualItemsOneProcessEach) {
  Add({"/a"});
  Add({"/a"});
  Add({"/b"});
  Add({"/c"});
  EXPECT_EQ(Given({Working(1, {"/a"}), Working(2, {"/a"})}), (Ids{1, 2, 0, 0}));
}

TEST_F(Matching, LooksBehindAnInterpreter) {
  Add({"/script", "x"});
  Add({"/other"});
  Add({"/last"});
  EXPECT_EQ(Given({Working(1, {"/bin/sh", "-e", "/script", "x"}),
                   Working(2, {"python3", "/other"})}),
            (Ids{1, 2, 0}));
}

TEST_F(Matching, LooksBehindTenWordsOfInterpretersAndNoMore) {
  Add({"/script"});
  Add({"/other"});
  Add({"/last"});
  Words ten(10, "i");
  Words eleven(11, "i");
  ten.push_back("/script");
  eleven.push_back("/other");
  EXPECT_EQ(Given({Working(1, eleven), Working(2, ten)}), (Ids{2, 0, 0}));
  EXPECT_EQ(launcher_.unassigned.size(), 1U);
}

TEST_F(Matching, PrefersTheSameArgumentsToAnInterpreters) {
  Add({"/a"});
  Add({"/bin/sh", "/a"});
  EXPECT_EQ(Given({Working(1, {"/bin/sh", "/a"}), Working(2, {"/a"})}),
            (Ids{2, 1}));
}

TEST_F(Matching, RecognisesWhatAnItemHasExecuted) {
  Add({"/usr/bin/env", "A=1", "sleep", "5"});
  Add({"/bin/sh", "-c", "ulimit -n 100; exec web --port 80"});
  Add({"/other"});
  EXPECT_EQ(
      Given({Working(1, {"web", "--port", "80"}), Working(2, {"sleep", "5"})}),
      (Ids{2, 1, 0}));
}

TEST_F(Matching, WantsWholeWordsOfWhatAnItemHasExecuted) {
  Add({"/bin/sh", "-c", "exec nosleep 5"});
  Add({"/other"});
  EXPECT_EQ(Given({Working(1, {"sleep", "5"})}), (Ids{0, 0}));
}

TEST_F(Matching, DoesNotTakeAProcessWithoutArgumentsForTheEndOfAnItem) {
  Add({"/bin/sh", "-c", "exec x "});
  Add({"/other"});
  EXPECT_EQ(Given({Working(1, {})}), (Ids{0, 0}));
}

TEST_F(Matching, GivesTheLastItemTheLastProcess) {
  Add({"/a"});
  Add({"/b"});
  EXPECT_EQ(Given({Working(1, {"a title"}), Working(2, {"/a"})}), (Ids{2, 1}));
  EXPECT_TRUE(launcher_.unassigned.empty());
}

TEST_F(Matching, GuessesNothing) {
  Add({"/a"});
  Add({"/b"});
  EXPECT_EQ(Given({Working(1, {"x"}), Working(2, {"y"})}), (Ids{0, 0}));
  ASSERT_EQ(launcher_.unassigned.size(), 2U);
  EXPECT_EQ(launcher_.unassigned[1].process.id, 2);
}

TEST_F(Matching, LeavesAnItemWithoutKnownArgumentsToTheLastRule) {
  Add({"/a"});
  launcher_.items[0].command_line = "";
  Add({"/b"});
  EXPECT_EQ(Given({Working(1, {}), Working(2, {"/b"})}), (Ids{1, 2}));
}

TEST_F(Matching, GivesAChainToTheItemThatCannotBeExecuted) {
  const TempDir directory;
  Add({"/bin/sh"});
  Add({"/bin/cat"});
  Add({directory.Write("not-executable", "")});
  EXPECT_EQ(Given({Working(5, {"a title"}), Chain(6, 9)}), (Ids{0, 0, 6}));
  EXPECT_EQ(launcher_.items[2].state, ItemState::kChain);
  EXPECT_EQ(launcher_.items[2].worker->links, 9U);
}

TEST_F(Matching, TakesADirectoryForAProgramThatCannotBeExecuted) {
  Add({"/bin/sh"});
  Add({"/"});
  EXPECT_EQ(Given({Chain(6, 9)}), (Ids{0, 6}));
}

TEST_F(Matching, LeavesChainsThatMayBeSeveralItems) {
  Add({"/nonexistent/a"});
  Add({"/nonexistent/b"});
  EXPECT_EQ(Given({Chain(1, 2), Chain(2, 3)}), (Ids{0, 0}));
  EXPECT_EQ(launcher_.unassigned.size(), 2U);
}

TEST_F(Matching, LeavesTwoChainsForOneItem) {
  Add({"/nonexistent/a"});
  Add({"/bin/sh"});
  EXPECT_EQ(Given({Chain(1, 2), Chain(2, 3)}), (Ids{0, 0}));
}

TEST_F(Matching, RecognisesAChainByTheProgramAtItsEnd) {
  Add({"/a"});
  Add({"/b"});
  Worker chain = Chain(1, 2);
  chain.command_line = CommandLine({"/b"});
  EXPECT_EQ(Given({chain}), (Ids{0, 1}));
  EXPECT_EQ(launcher_.items[1].state, ItemState::kChain);
}

}  // namespace
