#include <gtest/gtest.h>
#include <json/json.h>

#include <filesystem>
#include <string>
#include <vector>

#include "launcher/Items.h"
#include "tests/support/TempDir.h"
#include "tests/unit/tools/status/Processes.h"
#include "tools/status/Status.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr pid_t kLauncher = 100;

std::string Item(int index, const std::string& name,
                 const std::string& program) {
  return "\"" + std::to_string(index) + R"(": {"name": ")" + name +
         R"(", "program": ")" + program + "\"}";
}

using Words = std::vector<std::string>;

class StatusTest : public testing::Test {
 protected:
  // A launcher of the file's items with a thread for each of `threads`.
  void Launch(const std::string& items, int threads) {
    file_ = directory_.Write("items.json", items);
    fs::last_write_time(file_, fs::file_time_type::clock::now() - 2 * kUptime);
    processes_.push_back(Copy(kLauncher, 1));
    processes_.back().threads = threads + 2;
  }

  // A launcher of items with these arguments.
  void Launch(const std::vector<Words>& items) {
    Json::Value document;
    for (const Words& words : items) {
      Json::Value& item = document[std::to_string(document.size())];
      item["name"] = words[0] + std::to_string(document.size());
      item["program"] = words[0];
      item["argc"] = static_cast<int>(words.size()) - 1;
      for (std::size_t i = 1; i < words.size(); ++i) {
        item["args"][std::to_string(i - 1)] = words[i];
      }
    }
    Launch(document.toStyledString(), static_cast<int>(items.size()));
  }

  // The items' process ids, 0 for those without.
  std::vector<pid_t> Given() const {
    std::vector<pid_t> ids;
    for (const ItemStatus& item : FindLauncher().items) {
      ids.push_back(item.worker ? item.worker->process.id : 0);
    }
    return ids;
  }

  // A process with the launcher's arguments and one thread.
  Process Copy(pid_t id, pid_t parent) const {
    return Program(id, parent, {"/x/launcher", "alpha", file_});
  }

  void Run(pid_t id, const std::vector<std::string>& words,
           pid_t parent = kLauncher) {
    processes_.push_back(Program(id, parent, words));
  }

  Process& TheLauncher() { return processes_[0]; }

  Status Find() const { return FindStatus(processes_, kUser); }

  LauncherStatus FindLauncher() const {
    const Status status = Find();
    EXPECT_EQ(status.launchers.size(), 1U);
    return status.launchers.empty() ? LauncherStatus() : status.launchers[0];
  }

  std::vector<std::string> States() const {
    std::vector<std::string> states;
    for (const ItemStatus& item : FindLauncher().items) {
      states.push_back(item.state);
    }
    return states;
  }

  TempDir directory_;
  std::string file_;
  std::vector<Process> processes_;
};

using Ids = std::vector<pid_t>;
using States = std::vector<std::string>;

const std::string kTwo =
    "{" + Item(0, "a", "/a") + ", " + Item(1, "b", "/b") + "}";

TEST_F(StatusTest, FindsALauncherAndItsItems) {
  Launch(kTwo, 2);
  Run(101, {"/a"});
  Run(102, {"/b"});
  const LauncherStatus launcher = FindLauncher();
  EXPECT_EQ(launcher.Owner(), "alpha");
  EXPECT_EQ(launcher.items_file, file_);
  EXPECT_EQ(launcher.process.id, kLauncher);
  EXPECT_EQ(launcher.problem, "");
  EXPECT_FALSE(launcher.changed);
  EXPECT_FALSE(launcher.shared);
  ASSERT_EQ(launcher.items.size(), 2U);
  EXPECT_EQ(launcher.items[1].name, "b");
  EXPECT_EQ(launcher.items[1].worker->process.id, 102);
  EXPECT_TRUE(AllRun(FindLauncher()));
  EXPECT_TRUE(Find().orphans.empty());
}

TEST_F(StatusTest, FindsNoLauncherAmongOtherProcesses) {
  Launch(kTwo, 2);
  const Process launcher = TheLauncher();
  const auto finds = [&](const auto& change) {
    TheLauncher() = launcher;
    change(TheLauncher());
    return Find().launchers.size();
  };
  EXPECT_EQ(finds([](Process&) {}), 1U);
  EXPECT_EQ(finds([](Process& p) { p.user = kUser + 1; }), 0U);
  EXPECT_EQ(finds([](Process& p) { p.threads = 1; }), 0U);
  EXPECT_EQ(finds([](Process& p) { p.threads = 2; }), 1U);
  EXPECT_EQ(finds([](Process& p) { p.arguments[0] = "/x/sh"; }), 0U);
  EXPECT_EQ(finds([](Process& p) { p.arguments[0] = "launcher"; }), 1U);
  EXPECT_EQ(finds([](Process& p) { p.arguments.pop_back(); }), 0U);
  EXPECT_EQ(finds([](Process& p) { p.arguments.push_back("more"); }), 1U);
}

TEST_F(StatusTest, ComparesTheArgumentsThatTheLauncherGives) {
  Launch(R"({"0": {"name": "a", "program": "/a", "argc": 3,
                   "args": {"0": "x y", "2": "z\u0000cut"}},
             "1": {"name": "b", "program": "/b"}, "2": {"name": "c"}})",
         3);
  Run(101, {"/a", "x y", "", "z"});
  EXPECT_EQ(FindLauncher().items[0].worker->process.id, 101);
}

TEST_F(StatusTest, SkipsItemsWithoutANameAndThoseAfterAGap) {
  Launch("{" + Item(0, "a", "/a") + R"(, "1": {"program": "/b"}, )" +
             Item(2, "c", "/c") + ", " + Item(4, "d", "/d") + "}",
         2);
  const LauncherStatus launcher = FindLauncher();
  ASSERT_EQ(launcher.items.size(), 2U);
  EXPECT_EQ(launcher.items[1].name, "c");
}

TEST_F(StatusTest, CountsTheLaterOfTwoItemsWithOneName) {
  Launch("{" + Item(0, "a", "/a") + ", " + Item(1, "b", "/b") + ", " +
             Item(2, "a", "/c") + "}",
         2);
  Run(101, {"/c"});
  Run(102, {"/b"});
  const LauncherStatus launcher = FindLauncher();
  ASSERT_EQ(launcher.items.size(), 2U);
  EXPECT_EQ(launcher.items[0].worker->process.id, 101);
  EXPECT_TRUE(AllRun(FindLauncher()));
}

TEST_F(StatusTest, AnItemWhoseArgumentsThrowIsStartedAgainAndAgain) {
  Launch("{" + Item(0, "b", "/b") +
             R"(, "1": {"name": "a", "program": "/a", "argc": "1"}})",
         2);
  Run(101, {"/b"});
  EXPECT_EQ(States(), (::States{kRunning, kBetweenStarts}));
}

TEST_F(StatusTest, DoesNotBuildMoreArgumentsThanALauncherCan) {
  const auto command = [&](std::int64_t argc) {
    file_ = directory_.Write(
        "items.json", R"({"0": {"name": "a", "program": "/a", "argc": )" +
                          std::to_string(argc) + "}}");
    processes_ = {Copy(kLauncher, 1)};
    TheLauncher().threads = 3;
    return FindLauncher().items[0].command;
  };
  EXPECT_EQ(command(kLargestArgc),
            " /a" + std::string(std::size_t{kLargestArgc}, ' '));
  EXPECT_EQ(command(kLargestArgc + 1), "");
  EXPECT_EQ(command(2'147'483'646), "");
}

TEST_F(StatusTest, GivesEachItemTheProcessWithItsArguments) {
  Launch({{"/a", "x"}, {"/a", "y"}, {"/b"}});
  Run(101, {"/b"});
  Run(102, {"/a", "y"});
  Run(103, {"/a", "x"});
  EXPECT_EQ(Given(), (Ids{103, 102, 101}));
  EXPECT_TRUE(FindLauncher().unassigned.empty());
}

TEST_F(StatusTest, GivesEqualItemsOneProcessEach) {
  Launch({{"/a"}, {"/a"}, {"/b"}, {"/c"}});
  Run(101, {"/a"});
  Run(102, {"/a"});
  EXPECT_EQ(Given(), (Ids{101, 102, 0, 0}));
}

TEST_F(StatusTest, RecognisesAScriptAfterItsInterpreter) {
  Launch({{"/script", "x"}, {"/other"}, {"/last"}});
  Run(101, {"/bin/sh", "-e", "/script", "x"});
  Run(102, {"python3", "/other"});
  EXPECT_EQ(Given(), (Ids{101, 102, 0}));
}

TEST_F(StatusTest, PrefersEqualArgumentsToAnInterpretersArguments) {
  Launch({{"/a"}, {"/bin/sh", "/a"}});
  Run(101, {"/bin/sh", "/a"});
  Run(102, {"/a"});
  EXPECT_EQ(Given(), (Ids{102, 101}));
}

TEST_F(StatusTest, RecognisesAProgramThatAnItemExecutes) {
  Launch({{"/usr/bin/env", "A=1", "sleep", "5"},
          {"/bin/sh", "-c", "ulimit -n 100; exec web --port 80"},
          {"/other"}});
  Run(101, {"web", "--port", "80"});
  Run(102, {"sleep", "5"});
  EXPECT_EQ(Given(), (Ids{102, 101, 0}));
}

TEST_F(StatusTest, ComparesWholeArgumentsOfAnExecutedProgram) {
  Launch({{"/bin/sh", "-c", "exec nosleep 5"}, {"/other"}});
  Run(101, {"sleep", "5"});
  EXPECT_EQ(Given(), (Ids{0, 0}));
}

TEST_F(StatusTest, GivesTheLastItemTheLastProcess) {
  Launch({{"/a"}, {"/b"}});
  Run(101, {"a title"});
  Run(102, {"/a"});
  EXPECT_EQ(Given(), (Ids{102, 101}));
  EXPECT_TRUE(FindLauncher().unassigned.empty());
}

TEST_F(StatusTest, LeavesProcessesUnassignedRatherThanGuess) {
  Launch({{"/a"}, {"/b"}});
  Run(101, {"x"});
  Run(102, {});
  EXPECT_EQ(Given(), (Ids{0, 0}));
  ASSERT_EQ(FindLauncher().unassigned.size(), 2U);
  EXPECT_EQ(FindLauncher().unassigned[1].process.id, 102);
}

TEST_F(StatusTest, DoesNotChooseBetweenTwoProcessesForTheLastItem) {
  Launch({{"/a"}});
  Run(101, {"x"});
  Run(102, {"y"});
  EXPECT_EQ(Given(), (Ids{0}));
  EXPECT_EQ(FindLauncher().unassigned.size(), 2U);
}

TEST_F(StatusTest, AThreadForEachItemMeansThatMissingOnesStartAgain) {
  Launch(kTwo, 2);
  EXPECT_EQ(States(), (::States{kBetweenStarts, kBetweenStarts}));
  EXPECT_FALSE(AllRun(FindLauncher()));
  TheLauncher().threads += 1;  // a logger library's
  EXPECT_EQ(States(), (::States{kBetweenStarts, kBetweenStarts}));
}

TEST_F(StatusTest, AnItemWithoutAThreadIsGivenUp) {
  Launch(kTwo, 1);
  Run(101, {"/b"});
  EXPECT_EQ(States(), (::States{kGivenUp, kRunning}));
}

TEST_F(StatusTest, DoesNotSayWhichOfTwoItemsIsGivenUp) {
  Launch(kTwo, 1);
  EXPECT_EQ(States(), (::States{kNotRunning, kNotRunning}));
}

TEST_F(StatusTest, ALauncherThatIsStillLoadingHasGivenNoItemUp) {
  Launch(kTwo, 0);
  TheLauncher().uptime = 1039ms;
  EXPECT_EQ(States(), (::States{kNotRunning, kNotRunning}));
  TheLauncher().uptime = 1040ms;
  EXPECT_EQ(States(), (::States{kGivenUp, kGivenUp}));
}

TEST_F(StatusTest, KnowsThatAllRunWithoutKnowingWhich) {
  Launch(kTwo, 2);
  Run(101, {"x"});
  Run(102, {"y"});
  EXPECT_EQ(States(), (::States{kRunning, kRunning}));
  EXPECT_FALSE(FindLauncher().items[0].worker);
  EXPECT_TRUE(AllRun(FindLauncher()));
}

TEST_F(StatusTest, CallsNoItemRunningWhenProcessesAreFewerThanItems) {
  Launch("{" + Item(0, "a", "/a") + ", " + Item(1, "b", "/b") + ", " +
             Item(2, "c", "/c") + "}",
         3);
  Run(101, {"x"});
  Run(102, {"y"});
  EXPECT_EQ(States(), (::States{kNotRunning, kNotRunning, kNotRunning}));
}

TEST_F(StatusTest, FollowsAChainToItsEnd) {
  Launch("{" + Item(0, "a", "/nonexistent") + "}", 1);
  processes_.push_back(Copy(101, kLauncher));
  EXPECT_EQ(States(), (::States{kBetweenStarts})) << "it has just been forked";
  processes_.push_back(Copy(102, 101));
  processes_.push_back(Copy(103, 102));
  const LauncherStatus launcher = FindLauncher();
  EXPECT_EQ(launcher.items[0].state, "chain of 3 processes");
  EXPECT_EQ(launcher.items[0].worker->links, 3U);
  EXPECT_EQ(launcher.items[0].worker->process.id, 101);
  EXPECT_FALSE(AllRun(FindLauncher()));
  EXPECT_TRUE(Find().orphans.empty());
}

TEST_F(StatusTest, SeesTheProgramAtTheEndOfAChain) {
  Launch(kTwo, 2);
  processes_.push_back(Copy(101, kLauncher));
  Run(102, {"/b"}, 101);
  EXPECT_EQ(States(), (::States{kBetweenStarts, "chain of 1 process"}));
}

// While execv replaces a process, the kernel shows no arguments.
TEST_F(StatusTest, LeavesOutAProcessThatMayBeInTheMiddleOfExecv) {
  Launch(kTwo, 2);
  Run(101, {"/a"});
  Run(102, {});
  processes_.back().uptime = 999ms;
  EXPECT_EQ(States(), (::States{kRunning, kBetweenStarts}));
  EXPECT_TRUE(FindLauncher().unassigned.empty());
  processes_.back().uptime = 1s;
  EXPECT_EQ(States(), (::States{kRunning, kRunning}));
}

TEST_F(StatusTest, LeavesOutAForkedChildWhoseOwnChildMayBeInExecv) {
  Launch(kTwo, 2);
  processes_.push_back(Copy(101, kLauncher));
  Run(102, {}, 101);
  EXPECT_EQ(States(), (::States{kBetweenStarts, kBetweenStarts}));
}

TEST_F(StatusTest, TwoUnassignedChainsAreNotRunningItems) {
  Launch("{" + Item(0, "a", "/nonexistent/a") + ", " +
             Item(1, "b", "/nonexistent/b") + "}",
         2);
  for (const pid_t head : {101, 103}) {
    processes_.push_back(Copy(head, kLauncher));
    processes_.push_back(Copy(head + 1, head));
  }
  EXPECT_EQ(States(), (::States{kNotRunning, kNotRunning}));
  EXPECT_EQ(FindLauncher().unassigned.size(), 2U);
}

TEST_F(StatusTest, DoesNotSayWhichOfTwoItemsHasAnUnassignedChain) {
  Launch({{"/a"}, {"/b"}});
  Run(101, {"x"});
  processes_.push_back(Copy(102, kLauncher));
  processes_.push_back(Copy(103, 102));
  EXPECT_EQ(States(), (::States{kNotRunning, kNotRunning}));
  EXPECT_EQ(FindLauncher().unassigned.size(), 2U);
}

TEST_F(StatusTest, NoticesAFileThatHasChangedSinceTheStart) {
  Launch(kTwo, 2);
  const auto changed_before = [&](std::chrono::milliseconds age) {
    fs::last_write_time(file_, fs::file_time_type::clock::now() - age);
    return FindLauncher().changed;
  };
  EXPECT_TRUE(changed_before(kUptime - 2min));
  EXPECT_EQ(States(), (::States{kNotRunning, kNotRunning}));
  EXPECT_FALSE(changed_before(kUptime + 2min));
  EXPECT_FALSE(changed_before(kUptime - 500ms)) << "the clock was set";
}

TEST_F(StatusTest, SaysWhyAnItemsFileCannotBeUsed) {
  Launch("{}", 0);
  EXPECT_TRUE(AllRun(FindLauncher()));
  directory_.Write("items.json", "{");
  EXPECT_EQ(FindLauncher().problem, "cannot be read as JSON");
  EXPECT_FALSE(AllRun(FindLauncher()));
  fs::remove(file_);
  EXPECT_EQ(FindLauncher().problem, "No such file or directory");
  fs::create_directory(file_);
  EXPECT_EQ(FindLauncher().problem, "not a regular file");
}

TEST_F(StatusTest, ReadsAnItemsFileUpToItsFirstNul) {
  Launch(kTwo + std::string(1, '\0') + "{", 2);
  EXPECT_EQ(FindLauncher().items.size(), 2U);
}

TEST_F(StatusTest, NoticesTwoLaunchersOnOneItemsFile) {
  Launch(kTwo, 2);
  fs::create_symlink(file_, directory_.Path() / "link");
  Process second =
      Program(200, 1, {"launcher", "beta", directory_.Path() / "link"});
  Process third = Program(300, 1, {"launcher", "c", "/nonexistent"});
  for (Process* const process : {&second, &third}) {
    process->threads = 2;
    processes_.push_back(*process);
  }
  const Status status = Find();
  ASSERT_EQ(status.launchers.size(), 3U);
  EXPECT_TRUE(status.launchers[0].shared);
  EXPECT_TRUE(status.launchers[1].shared);
  EXPECT_FALSE(status.launchers[2].shared);
}

TEST_F(StatusTest, FindsChainsWithoutALauncher) {
  file_ = "/items.json";
  processes_ = {Program(99, 1, {"/lib/systemd/systemd", "--user"}),
                Copy(101, 1),
                Copy(102, 101),
                Copy(201, 99),
                Copy(202, 201),
                Copy(301, 1)};
  const Status status = Find();
  ASSERT_EQ(status.orphans.size(), 2U) << "301 may be a launcher that starts";
  EXPECT_EQ(status.orphans[0].process.id, 101);
  EXPECT_EQ(status.orphans[0].links, 2U);
  EXPECT_EQ(status.orphans[1].process.id, 201);
}

TEST_F(StatusTest, LeavesOrphansOfOtherUsersAlone) {
  processes_ = {Copy(101, 1), Copy(102, 101)};
  processes_[0].user = kUser + 1;
  processes_[1].user = kUser + 1;
  EXPECT_TRUE(Find().orphans.empty());
}

TEST_F(StatusTest, FindsProgramsThatAnEarlierLauncherHasLeft) {
  Launch(kTwo, 2);
  Run(50, {"systemd", "--user"}, 1);
  Run(101, {"/a"}, 1);
  Run(102, {"/bin/sh", "/b"}, 50);
  Run(103, {"/a"}, 102);
  Run(104, {"/c"}, 1);
  Run(105, {}, 1);
  const Status status = Find();
  ASSERT_EQ(status.orphans.size(), 2U);
  EXPECT_EQ(status.orphans[0].process.id, 101);
  EXPECT_EQ(status.orphans[0].links, 0U);
  EXPECT_EQ(status.orphans[1].process.id, 102);
}

TEST_F(StatusTest, DoesNotMistakeALauncherThatIsAnItemForAnOrphan) {
  Launch("{" + Item(0, "a", "launcher") + "}", 1);
  directory_.Write("items.json", R"({"0": {"name": "a", "program": "launcher",
      "argc": 2, "args": {"0": "b", "1": "/c"}}})");
  Run(200, {"launcher", "b", "/c"}, 1);
  processes_.back().threads = 2;
  EXPECT_TRUE(Find().orphans.empty());
}

}  // namespace
