// scripts/run.sh, run for real on the programs of this build.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;

class RunTest : public testing::Test {
 protected:
  RunTest() {
    Stage(LAUNCHER_BINARY, "Contents/MacOS/launcher");
    Stage(LOGGER_LIBRARY, "Contents/Frameworks/" LAUNCHER_LOGGER_FILE);
#ifdef LAUNCHER_CHECK
    Stage(LAUNCHER_CHECK, "Contents/MacOS/launcher-check");
    Stage(LAUNCHER_LOG, "Contents/MacOS/launcher-log");
#endif
  }

  ~RunTest() override {
    if (script_ != 0) {
      kill(script_, SIGKILL);
      waitpid(script_, nullptr, 0);
    }
  }

  // Starts the script as the leader of a process group, with the items file
  // `items`, which it starts even when launcher-check finds errors in it.
  void Start(const std::string& items) { Execute({"--despite-errors", items}); }

  // Starts the script as the leader of a process group.
  void Execute(const std::vector<std::string>& arguments) {
    const std::string stage = directory_.Path() / "stage";
    const std::string output = directory_.Path() / "output";
    script_ = fork();
    if (script_ == 0) {
      setpgid(0, 0);
      if (std::freopen(output.c_str(), "w", stdout) != nullptr &&
          dup2(STDOUT_FILENO, STDERR_FILENO) >= 0) {
        std::vector<const char*> vector{"bash", SCRIPT, "--stage",
                                        stage.c_str()};
        for (const std::string& argument : arguments) {
          vector.push_back(argument.c_str());
        }
        vector.push_back(nullptr);
        execvp("bash", const_cast<char**>(vector.data()));
      }
      _exit(127);
    }
  }

  void StartItems(const std::string& items) {
    Start(directory_.Write("items.json", items));
  }

  std::string Output() const {
    std::ostringstream content;
    content << std::ifstream(directory_.Path() / "output").rdbuf();
    return content.str();
  }

  void Await(const std::string& part) const {
    EXPECT_TRUE(Eventually([&] {
      return Output().find(part) != std::string::npos;
    })) << part
        << "\n"
        << Output();
  }

  // The launcher's process id, which the script shows.
  pid_t Launcher() const {
    const std::string before = "The launcher runs as process ";
    Await(before);
    const std::string output = Output();
    return std::stoi(output.substr(output.find(before) + before.size()));
  }

  // Waits for the script's end and returns its exit status. Fails if the script
  // left a process, which would now be a child of the sandbox's first process.
  int Wait() {
    int status = 0;
    waitpid(script_, &status, 0);
    script_ = 0;
    EXPECT_TRUE(Eventually(
        [] { return ChildrenOf(1) == std::vector<pid_t>{getpid()}; }));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  TempDir directory_;
  pid_t script_ = 0;

 private:
  void Stage(const char* file, const char* place) {
    const fs::path link = directory_.Path() / "stage" / place;
    fs::create_directories(link.parent_path());
    fs::create_symlink(file, link);
  }
};

constexpr const char* kStopped = "The launcher has ended with status 1.";
constexpr const char* kNothingLeft = "No process of its session is left.";

TEST_F(RunTest, ShowsTheExampleRestartAndStopsAtSigterm) {
  REQUIRE_SANDBOX();
  Start(EXAMPLE_ITEMS);
  Await("[LAUNCHER  ] Start to fork sleeper");
  Await("status = 768");
  kill(script_, SIGTERM);
  EXPECT_EQ(Wait(), 0);
  Await(kStopped);
  Await(kNothingLeft);
}

// A terminal and timeout(1), for instance, signal the script's whole group.
class RunGroupTest : public RunTest, public testing::WithParamInterface<int> {};

TEST_P(RunGroupTest, ShowsTheStopToItsEnd) {
  REQUIRE_SANDBOX();
  Start(EXAMPLE_ITEMS);
  // By then every item has forked. Stopping one that has not ends the group.
  Await("status = 0\n");
  kill(-script_, GetParam());
  EXPECT_EQ(Wait(), 0);
  Await("status = 9\n");
  Await(kStopped);
  Await(kNothingLeft);
}

INSTANTIATE_TEST_SUITE_P(Signals, RunGroupTest,
                         testing::Values(SIGINT, SIGTERM, SIGHUP),
                         testing::PrintToStringParamName());

TEST_F(RunTest, KeepsEverythingInAHomeBesideTheStage) {
  REQUIRE_SANDBOX();
  const fs::path library = directory_.Path() / "home" / "Library";
  Start(EXAMPLE_ITEMS);
  Await("Start to fork");
  EXPECT_TRUE(fs::exists(library / "Application Support/Demo/log.ini"));
  EXPECT_TRUE(fs::exists(library / "Logs/Demo/qvxlog/launcher.log"));
  kill(script_, SIGTERM);
  Wait();
}

TEST_F(RunTest, LetsTheProgramsBeInterrupted) {
  REQUIRE_SANDBOX();
  StartItems(R"({"0": {"name": "self", "program": "/bin/sh", "argc": 2,
      "args": {"0": "-c", "1": "kill -INT $$; sleep 86400"}}})");
  Await("status = 2\n");
  kill(script_, SIGTERM);
  EXPECT_EQ(Wait(), 0);
}

TEST_F(RunTest, SaysThatTheLauncherCouldNotStart) {
  REQUIRE_SANDBOX();
  Start(directory_.Path() / "none.json");
  EXPECT_EQ(Wait(), 1);
  Await("The launcher has ended with status 0.");
  Await("It could not start");
}

#ifdef LAUNCHER_CHECK
TEST_F(RunTest, DoesNotStartAFileWithErrorsUnlessToldTo) {
  REQUIRE_SANDBOX();
  Execute({directory_.Write("items.json", R"({"0": {"name": "empty"}})")});
  EXPECT_EQ(Wait(), 1);
  EXPECT_NE(Output().find("items.json"), std::string::npos) << Output();
  EXPECT_NE(Output().find("--despite-errors"), std::string::npos) << Output();
  EXPECT_EQ(Output().find("The launcher runs"), std::string::npos);
}

TEST_F(RunTest, ShowsTheFindingsBeforeTheStart) {
  REQUIRE_SANDBOX();
  Execute({directory_.Write(
      "items.json", R"({"0": {"name": "sleeper", "program": "/bin/sleep",
                    "argc": 1, "args": {"0": 86400}}})")});
  Await("Start to fork sleeper");
  const std::string output = Output();
  const std::size_t warning = output.find("items.json:2:");
  EXPECT_LT(warning, output.find("The launcher runs as process"));
  kill(script_, SIGTERM);
  Wait();
}

TEST_F(RunTest, ShowsTheTableOfItemsAtTheEnd) {
  REQUIRE_SANDBOX();
  Start(EXAMPLE_ITEMS);
  Await("status = 768");
  kill(script_, SIGTERM);
  EXPECT_EQ(Wait(), 0);
  const std::string output = Output();
  const std::size_t table = output.find("\nITEM    STARTS ENDS");
  ASSERT_NE(table, std::string::npos) << output;
  EXPECT_GT(table, output.find(kStopped));
  EXPECT_NE(output.find("\nsleeper      1    1 ", table), std::string::npos)
      << output;
  EXPECT_NE(output.find("\nsilent (ended, no restart seen): ", table),
            std::string::npos)
      << output;
}
#endif

TEST_F(RunTest, OutlivesALauncherThatKillsItsGroup) {
  REQUIRE_SANDBOX();
  StartItems(R"({"0": {"name": "empty"}})");
  EXPECT_EQ(Wait(), 1);
  Await("SIGKILL ended it.");
  Await(kNothingLeft);
}

TEST_F(RunTest, KillsTheChainOfAProgramThatCannotBeExecuted) {
  REQUIRE_SANDBOX();
  StartItems(R"({"0": {"name": "missing", "program": "/no/such/program"}})");
  // One start for each process of the chain.
  ASSERT_TRUE(Eventually([&] {
    const std::string output = Output();
    std::size_t starts = 0;
    for (std::size_t at = 0;
         (at = output.find("Start to fork missing", at)) != std::string::npos;
         ++at) {
      ++starts;
    }
    return starts >= 5;
  })) << Output();
  kill(script_, SIGTERM);
  EXPECT_EQ(Wait(), 0);
  Await("Killing the processes that it left: ");
  Await(kNothingLeft);
}

TEST_F(RunTest, KillsALauncherThatDoesNotEnd) {
  REQUIRE_SANDBOX();
  Start(directory_.Path());  // It reads a directory forever.
  const pid_t launcher = Launcher();
  ASSERT_TRUE(Eventually(
      [&] { return DescriptorsOf(launcher)[0] == directory_.Path(); }));
  kill(script_, SIGTERM);
  EXPECT_EQ(Wait(), 1);
  Await("The launcher does not end; killing it.");
}

}  // namespace
