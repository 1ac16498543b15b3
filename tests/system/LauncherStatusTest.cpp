// The program launcher-status, on real launchers.

#include <gtest/gtest.h>
#include <json/json.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Command.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = std::filesystem;

std::string Item(const std::string& name, const std::string& program) {
  return R"({"name": ")" + name + R"(", "program": ")" + program + R"("})";
}

class LauncherStatus : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_SANDBOX(); }

  static CommandResult Run(std::vector<std::string> options = {}) {
    options.insert(options.begin(), LAUNCHER_STATUS);
    return RunCommand(options);
  }

  static Json::Value Document() {
    std::istringstream text(Run({"--json"}).output);
    Json::Value document;
    text >> document;
    return document;
  }

  static Json::Value Item(int index) {
    return Document()["launchers"][0]["items"][index];
  }

  static bool Becomes(int index, const std::string& state) {
    return Eventually([&] { return Item(index)["state"] == state; });
  }

#ifdef FAILING_CALLS
  void FailCalls(const std::string& failing) {
    launcher_.SetEnvironment("LD_PRELOAD", FAILING_CALLS);
    launcher_.SetEnvironment("FAILING", failing);
    launcher_.SetEnvironment("FAILED", launcher_.Root() / "failed");
    launcher_.SetEnvironment("KILLS", launcher_.Root() / "kills");
  }
#endif

  LauncherRun launcher_;
};

TEST_F(LauncherStatus, SaysThatNoLauncherRuns) {
  const CommandResult result = Run();
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.output, "this user runs no launcher\n");
  EXPECT_EQ(Run({"--json"}).status, 2);
  EXPECT_EQ(Run({"--pid", "a"}).status, 2);
}

TEST_F(LauncherStatus, ShowsRunningItems) {
  launcher_.StartItems(ItemsFile({Sleeper("a"), Sleeper("b")}));
  launcher_.AwaitReady(2);
  EXPECT_TRUE(Eventually([] { return Run().status == 0; }));
  const Json::Value launcher = Document()["launchers"][0];
  EXPECT_EQ(launcher["owner"], "alpha");
  EXPECT_EQ(launcher["process"], launcher_.Process());
  EXPECT_EQ(launcher["items_file"].asString(),
            (launcher_.Root() / "items.json").string());
  EXPECT_EQ(launcher["changed"], false);
  std::vector<pid_t> shown{launcher["items"][0]["process"].asInt(),
                           launcher["items"][1]["process"].asInt()};
  std::ranges::sort(shown);  // Either may have been forked first.
  EXPECT_EQ(shown, ChildrenOf(launcher_.Process()));
  EXPECT_EQ(launcher["items"][0]["command"], "/bin/sleep 1000");
  EXPECT_NE(Run().output.find("\na                        running  "),
            std::string::npos);
}

TEST_F(LauncherStatus, ShowsAnItemBetweenTwoStarts) {
  launcher_.StartItems(ItemsFile({Tick("a"), Sleeper("b")}));
  EXPECT_TRUE(Becomes(0, "between two starts"));
  EXPECT_TRUE(Eventually([] { return Run().status == 1; }));
  EXPECT_TRUE(Becomes(1, "running"));
}

TEST_F(LauncherStatus, ShowsAChain) {
  launcher_.StartItems(ItemsFile({Sleeper("a"), ::Item("b", "/nonexistent")}));
  EXPECT_TRUE(
      Eventually([] { return Item(1)["chain_processes"].asInt() >= 5; }));
  EXPECT_TRUE(Item(1)["state"].asString().starts_with("chain of "));
  EXPECT_EQ(Run().status, 1);
  EXPECT_EQ(Run({"--pid", "b"}).status, 1);
}

TEST_F(LauncherStatus, FollowsTheWholeChain) {
  launcher_.StartItems(ItemsFile({::Item("a", "/nonexistent")}));
  // It grows meanwhile, so it has no more links than processes afterwards, and
  // no fewer than before.
  EXPECT_TRUE(
      Eventually([] { return Item(0)["chain_processes"].asInt() >= 2; }));
  const auto links = [&] {
    return std::ssize(SessionOf(launcher_.Process())) - 1;
  };
  const auto before = links();
  const auto shown = Item(0)["chain_processes"].asInt64();
  EXPECT_GE(shown, before);
  EXPECT_LE(shown, links());
}

#ifdef FAILING_CALLS
TEST_F(LauncherStatus, ShowsAnItemThatIsGivenUp) {
  FailCalls("fork:1");
  launcher_.StartItems(ItemsFile({Sleeper("a")}));
  EXPECT_TRUE(Becomes(0, "given up"));
  EXPECT_EQ(Run().status, 1);
}

TEST_F(LauncherStatus, RestartsAnItemWithoutAProgramAgainAndAgain) {
  FailCalls("kill:1+");  // Its end would take the launcher with it.
  launcher_.StartItems(ItemsFile({::Item("a", "")}));
  EXPECT_TRUE(Becomes(0, "between two starts"));
}
#endif

TEST_F(LauncherStatus, RecognisesScriptsAndExecutedPrograms) {
  const std::string script =
      launcher_.Directory().Write("script", "#!/bin/sh\nread x </dev/zero\n");
  fs::permissions(script, fs::perms::owner_all);
  launcher_.StartItems(
      ItemsFile({::Item("script", script),
                 R"({"name": "shell", "program": "/bin/sh", "argc": 2,
           "args": {"0": "-c", "1": "exec sleep 1001"}})",
                 R"({"name": "env", "program": "/usr/bin/env", "argc": 2,
           "args": {"0": "sleep", "1": "1002"}})",
                 Sleeper("plain")}));
  const auto becomes = [](int index, const std::string& command) {
    return Eventually([&] { return Item(index)["command"] == command; });
  };
  EXPECT_TRUE(becomes(0, "/bin/sh " + script));
  EXPECT_TRUE(becomes(1, "sleep 1001"));
  EXPECT_TRUE(becomes(2, "sleep 1002"));
  EXPECT_TRUE(Eventually([] { return Run().status == 0; })) << Run().output;
}

TEST_F(LauncherStatus, WritesTheProcessIdThatRestartsOneItem) {
  launcher_.StartItems(ItemsFile({Sleeper("a"), Tick("b")}));
  EXPECT_TRUE(Becomes(0, "running"));
  const CommandResult result = Run({"--pid", "a"});
  EXPECT_EQ(result.status, 0);
  const pid_t process = std::stoi(result.output);
  EXPECT_EQ(result.output, std::to_string(process) + "\n");
  kill(process, SIGTERM);
  EXPECT_TRUE(Eventually([&] {
    const CommandResult again = Run({"--pid", "a"});
    return again.status == 0 && std::stoi(again.output) != process;
  }));
}

TEST_F(LauncherStatus, WritesNoProcessIdWhenThereIsNotExactlyOne) {
  launcher_.StartItems(ItemsFile({Sleeper("a"), Tick("b")}));
  EXPECT_TRUE(Becomes(0, "running"));
  for (const std::string name : {"", "c", "a "}) {
    const CommandResult result = Run({"--pid", name});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.errors.find("no launcher has an item called " + name),
              std::string::npos);
  }
  CommandResult result;
  EXPECT_TRUE(Eventually([&] {
    result = Run({"--pid", "b"});
    return result.errors.find("b: between two starts\n") != std::string::npos;
  }));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
}

TEST_F(LauncherStatus, WritesNoProcessIdThatMayBeAnotherItems) {
  const auto title = [](const std::string& name) {
    return R"({"name": ")" + name + R"(", "program": "/bin/sh", "argc": 2,
               "args": {"0": "-c", "1": "exec 'sleep' 1001"}})";
  };
  launcher_.StartItems(ItemsFile({title("a"), title("b")}));
  EXPECT_TRUE(Eventually([] {
    return Run().status == 0 &&
           Document()["launchers"][0]["unassigned"].size() == 2;
  }));
  const CommandResult result = Run({"--pid", "a"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_NE(Run().output.find("\nprocesses of unknown items:\nsleep 1001  "),
            std::string::npos);
}

TEST_F(LauncherStatus, ShowsTwoLaunchersOnOneItemsFile) {
  launcher_.StartItems(ItemsFile({Sleeper("a")}));
  LauncherRun second;
  second.Start({"beta", launcher_.Root() / "items.json"});
  EXPECT_TRUE(Eventually(
      [] { return Run().status == 0 && Document()["launchers"].size() == 2; }));
  for (const Json::Value& launcher : Document()["launchers"]) {
    EXPECT_EQ(launcher["shared"], true);
  }
  const CommandResult result = Run({"--pid", "a"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_NE(result.errors.find("several launchers have an item called a\n"),
            std::string::npos);
}

TEST_F(LauncherStatus, ResolvesARelativePathAsTheLauncherDoes) {
  launcher_.Directory().Write("work/items.json", ItemsFile({Sleeper("a")}));
  launcher_.Start({"alpha", "items.json"},
                  [&] { fs::current_path(launcher_.Root() / "work"); });
  EXPECT_TRUE(Becomes(0, "running"));
  EXPECT_EQ(Document()["launchers"][0]["items_file"].asString(),
            (launcher_.Root() / "work/items.json").string());
}

TEST_F(LauncherStatus, NoticesAFileThatHasChanged) {
  launcher_.StartItems(ItemsFile({Sleeper("a")}));
  EXPECT_TRUE(Becomes(0, "running"));
  launcher_.Directory().Write("items.json",
                              ItemsFile({Sleeper("a"), Sleeper("b")}));
  fs::last_write_time(launcher_.Root() / "items.json",
                      fs::file_time_type::clock::now() + std::chrono::hours(1));
  EXPECT_EQ(Document()["launchers"][0]["changed"], true);
  EXPECT_EQ(Item(1)["state"], "not running");
  EXPECT_EQ(Run().status, 1);
}

TEST_F(LauncherStatus, ShowsTheProcessesThatALauncherLeft) {
  launcher_.StartItems(ItemsFile({Sleeper("a"), ::Item("b", "/nonexistent")}));
  EXPECT_TRUE(Eventually([] {
    return Item(0)["state"] == "running" &&
           Item(1)["chain_processes"].asInt() >= 2;
  }));
  const pid_t left = Item(0)["process"].asInt();
  launcher_.Signal(SIGKILL);
  launcher_.Wait();
  EXPECT_EQ(Run().status, 2);
  EXPECT_EQ(Document()["orphans"].size(), 1U) << "the chain";
  LauncherRun second;
  second.StartItems(ItemsFile({Sleeper("a")}));
  EXPECT_TRUE(Eventually([] { return Run().status == 0; }));
  Json::Value orphans = Document()["orphans"];
  ASSERT_EQ(orphans.size(), 2U);
  const int chain = orphans[0]["process"] == left ? 1 : 0;
  EXPECT_EQ(orphans[1 - chain]["process"], left);
  EXPECT_GE(orphans[chain]["chain_processes"].asInt(), 2);
  EXPECT_NE(Run().output.find("\n\norphans, "), std::string::npos);
}

TEST_F(LauncherStatus, RefreshesItsTable) {
  launcher_.StartItems(ItemsFile({Sleeper("a")}));
  EXPECT_TRUE(Becomes(0, "running"));
  TerminalCommand watch({LAUNCHER_STATUS, "--watch"}, {{"TERM", "xterm"}},
                        {24, 80, 0, 0});
  const auto shown = [&] {
    const std::string& output = watch.Output();
    return output.rfind("\x1b[H") != output.find("\x1b[H") &&
           output.rfind("\r\na      ") != std::string::npos;
  };
  EXPECT_TRUE(Eventually(shown));
  watch.Signal(SIGTERM);
  EXPECT_EQ(watch.Wait(), 128 + SIGTERM);
}

TEST_F(LauncherStatus, WritesItsTableAgainWhenThereIsNoTerminal) {
  const CommandResult result = RunCommand(
      {"/bin/sh", "-c", LAUNCHER_STATUS " --watch | head -n 4 | cat"});
  EXPECT_EQ(result.output,
            "this user runs no launcher\n\n"
            "this user runs no launcher\n\n");
}

TEST_F(LauncherStatus, ColoursOnATerminalOnly) {
  launcher_.StartItems(ItemsFile({::Item("a", "/nonexistent")}));
  EXPECT_TRUE(
      Eventually([] { return Item(0)["chain_processes"].asInt() >= 2; }));
  EXPECT_NE(
      RunOnTerminal({LAUNCHER_STATUS}, {{"TERM", "xterm"}}).output.find('\x1b'),
      std::string::npos);
  EXPECT_EQ(Run().output.find('\x1b'), std::string::npos);
}

TEST(LauncherStatusArguments, AreRefusedWhenTheyAreWrong) {
  const auto status = [](std::vector<std::string> options) {
    options.insert(options.begin(), LAUNCHER_STATUS);
    return RunCommand(options).status;
  };
  EXPECT_EQ(status({"--nonsense"}), 3);
  EXPECT_EQ(status({"a"}), 3);
  EXPECT_EQ(status({"--pid"}), 3);
  EXPECT_EQ(status({"--json", "--watch"}), 3);
  EXPECT_EQ(status({"--json", "--pid", "a"}), 3);
  EXPECT_EQ(status({"--watch", "--pid", "a"}), 3);
  EXPECT_EQ(status({"--help"}), 0);
  EXPECT_TRUE(RunCommand({LAUNCHER_STATUS, "--version"})
                  .output.starts_with("launcher-status 1."));
}

}  // namespace
