// The real launcher, from its start to its exit status.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <set>
#include <unordered_map>

#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SystemLog.h"

namespace {

using namespace std::chrono_literals;

constexpr const char* kParseError =
    "[LAUNCHER  ] Error while parsing saved json string.";
constexpr const char* kNoName = "[LAUNCHER  ] There is an item has no name.";

// Of what may end with the documented SIGKILL instead.
constexpr int kMaxTries = 200;

std::string Start(const std::string& name) {
  return "[LAUNCHER  ] Start to fork " + name;
}

std::string End(const std::string& name) {
  return "[LAUNCHER  ] " + name + " ";
}

// The arguments of `process`, a blank between two.
std::string CommandLine(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/cmdline",
                     std::ios::binary);
  std::string line;
  for (std::string one; std::getline(file, one, '\0');) {
    line += (line.empty() ? "" : " ") + one;
  }
  return line;
}

std::set<int> With(std::set<int> signals, int signal) {
  signals.insert(signal);
  return signals;
}

class LauncherTest : public testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_SANDBOX();
    run_ = std::make_unique<LauncherRun>();
  }

  // Expects the launcher to end by itself with status 0.
  void ExpectNotStarted() { EXPECT_EQ(run_->Wait(), 0); }

  // Expects the launcher to end with status 1 on SIGTERM, and to leave nothing.
  void ExpectStops() {
    const int status = run_->Stop();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_TRUE(SessionOf(run_->Process()).empty());
  }

  bool HasLogged(const std::string& message) const {
    const std::vector<std::string> messages = run_->Messages();
    return std::ranges::find(messages, message) != messages.end();
  }

  // Waits until exactly `count` children run and are known to the launcher.
  std::vector<pid_t> AwaitChildren(int count) {
    std::vector<pid_t> children;
    EXPECT_TRUE(Eventually([&] {
      children = ChildrenOf(run_->Process());
      return std::ssize(children) == count &&
             ThreadsInWait(run_->Process()) == count;
    }));
    return children;
  }

  std::unique_ptr<LauncherRun> run_;
};

// Arguments and events.

class LauncherEventTest : public LauncherTest {
 protected:
  void SetUp() override {
    LauncherTest::SetUp();
    if (!IsSkipped()) {
      system_log_ = std::make_unique<SystemLog>();
    }
  }

  // Expects exactly one event, `text`, at LOG_ERR with the default facility.
  void ExpectEvent(const std::string& text) {
    std::vector<std::string> lines;
    EXPECT_TRUE(Eventually([&] {
      std::ranges::move(system_log_->Lines(), std::back_inserter(lines));
      return !lines.empty();
    }));
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_TRUE(lines[0].starts_with("<11>")) << lines[0];
    // The program's name, with no identity or options of its own.
    EXPECT_TRUE(lines[0].ends_with(" launcher: " + text)) << lines[0];
  }

  std::unique_ptr<SystemLog> system_log_;
};

TEST_F(LauncherEventTest, WithoutArgumentsWritesAnEventAndEndsWithZero) {
  run_->Start({});
  ExpectNotStarted();
  ExpectEvent("Tamrel Launcher : wrong parameters.");
  EXPECT_TRUE(run_->Records().empty()) << "no log is set up";
}

TEST_F(LauncherEventTest, WithOneArgumentWritesAnEventAndEndsWithZero) {
  run_->Start({"alpha"});
  ExpectNotStarted();
  ExpectEvent("Tamrel Launcher : wrong parameters.");
  EXPECT_TRUE(run_->Records().empty()) << "no log is set up";
}

TEST_F(LauncherEventTest, WritesNoEventWhenAllIsWell) {
  run_->StartItems("{}");
  run_->Await("GetLogger");
  ExpectStops();
  EXPECT_TRUE(system_log_->Lines().empty());
}

TEST_F(LauncherEventTest, RunsOnWithoutALoggerThatRefuses) {
  run_->SetEnvironment("RECORDER", "refuse");
  run_->StartItems(R"({"0": )" + Sleeper("a") + ", \"1\": {}}");
  ExpectEvent("Tamrel Launcher for alpha : Failed to initialize logger");
  AwaitChildren(1);
  ExpectStops();
  EXPECT_EQ(run_->Records().size(), 1U) << "nothing but InitLogger was called";
  EXPECT_TRUE(system_log_->Lines().empty()) << "one event and no more";
}

TEST_F(LauncherEventTest, RunsOnWithoutALoggerLibrary) {
  run_->UseLibrary("");
  run_->StartItems(R"({"0": )" + Sleeper("a") + "}");
  ExpectEvent("Tamrel Launcher for alpha : Failed to initialize logger");
  AwaitChildren(1);
  ExpectStops();
}

TEST_F(LauncherEventTest, RunsOnWithALibraryThatCannotBeLoaded) {
  run_->UseLibrary(run_->Directory().Write("no-library", "text"));
  run_->StartItems(R"({"0": )" + Sleeper("a") + "}");
  ExpectEvent("Tamrel Launcher for alpha : Failed to initialize logger");
  AwaitChildren(1);
  ExpectStops();
}

TEST_F(LauncherEventTest, RunsOnWithALibraryThatLacksGetLogger) {
  run_->UseLibrary(HALF_LIBRARY);
  run_->StartItems(R"({"0": )" + Sleeper("a") + "}");
  ExpectEvent("Tamrel Launcher for alpha : Failed to initialize logger");
  AwaitChildren(1);
  ExpectStops();
}

TEST_F(LauncherEventTest, RunsOnWithALibraryThatLacksInitLogger) {
  run_->UseLibrary(OTHER_HALF_LIBRARY);
  run_->StartItems(R"({"0": )" + Sleeper("a") + "}");
  ExpectEvent("Tamrel Launcher for alpha : Failed to initialize logger");
  AwaitChildren(1);
  ExpectStops();
}

TEST_F(LauncherEventTest, RunsOnWithALibraryThatThrows) {
  run_->SetEnvironment("RECORDER", "throw");
  run_->StartItems(R"({"0": )" + Sleeper("a") + "}");
  ExpectEvent("Tamrel Launcher for alpha : Failed to initialize logger");
  AwaitChildren(1);
  ExpectStops();
}

TEST_F(LauncherEventTest, RunsOnSilentlyWhenTheLibraryGivesNoLogger) {
  for (const char* const recorder : {"silent", "fail"}) {
    run_ = std::make_unique<LauncherRun>();
    run_->SetEnvironment("RECORDER", recorder);
    run_->StartItems(R"({"0": )" + Sleeper("a") + "}");
    AwaitChildren(1);
    ExpectStops();
    EXPECT_EQ(run_->Records().size(), 2U) << "InitLogger and GetLogger";
  }
  EXPECT_TRUE(system_log_->Lines().empty());
}

TEST_F(LauncherEventTest, NeitherLogsNorWritesAnEventWithoutItemsFile) {
  run_->Start({"alpha", "/nonexistent/items.json"});
  ExpectNotStarted();
  EXPECT_TRUE(run_->Records().empty()) << "InitLogger must not be called";
  EXPECT_TRUE(system_log_->Lines().empty());
}

TEST_F(LauncherEventTest, NeitherLogsNorWritesAnEventOnAnEmptyItemsFile) {
  run_->StartItems("");
  ExpectNotStarted();
  EXPECT_TRUE(run_->Records().empty()) << "InitLogger must not be called";
  EXPECT_TRUE(system_log_->Lines().empty());
}

TEST_F(LauncherEventTest, DoesNotStartWithoutAPipeForSigterm) {
  run_->StartItems("{}", [] {
    for (const int descriptor : {0, 1, 2}) {
      close(descriptor);
    }
    constexpr rlimit kStandardDescriptorsOnly{3, 3};
    setrlimit(RLIMIT_NOFILE, &kStandardDescriptorsOnly);
  });
  ExpectNotStarted();
  ExpectEvent("Tamrel Launcher : no pipe or thread for SIGTERM.");
  EXPECT_TRUE(run_->Records().empty()) << "no log is set up";
}

TEST_F(LauncherTest, IgnoresFurtherArguments) {
  const std::string items = run_->Directory().Write("items.json", "{}");
  run_->Start({"alpha", items, "third", "--fourth"});
  run_->Await("GetLogger");
  ExpectStops();
}

// Setting up the log.

TEST_F(LauncherTest, OpensTheLoggerOnTheUsersLogDirectory) {
  run_->StartItems("{}");
  run_->Await("GetLogger");
  ExpectStops();
  const std::string directory = run_->Home() / "Library/Logs/Demo/qvxlog";
  EXPECT_EQ(run_->Messages(),
            (std::vector<std::string>{"InitLogger " + directory,
                                      "GetLogger 2 launcher 8"}));
}

TEST_F(LauncherTest, TakesTheLevelFromLogIni) {
  run_->Directory().Write("home/Library/Application Support/Demo/log.ini",
                          "[LOG]\nLEVEL=VERBOSE\n");
  run_->StartItems("{}");
  run_->Await("GetLogger 2 launcher 17");
  ExpectStops();
}

TEST_F(LauncherTest, StartsWithAnEmptyName) {
  run_->Directory().Write("Contents/Frameworks/qvxapi.ini", "");
  run_->Directory().Write("home/Library/Application Support/log.ini",
                          "[LOG]\nLEVEL=DEBUG\n");
  run_->StartItems("{}");
  run_->Await("GetLogger 2 launcher 1");
  ExpectStops();
  EXPECT_EQ(run_->Messages()[0],
            "InitLogger " + run_->Home().string() + "/Library/Logs//qvxlog");
}

TEST_F(LauncherTest, NeverWritesTheLineAboutReading) {
  run_->StartItems(R"({"0": )" + Sleeper("a") + "}");
  AwaitChildren(1);
  ExpectStops();
  for (const std::string& message : run_->Messages()) {
    EXPECT_EQ(message.find("Read data"), std::string::npos);
  }
}

// What ends the start-up.

class LauncherFaultTest : public LauncherTest,
                          public testing::WithParamInterface<std::string> {};

TEST_P(LauncherFaultTest, LogsOneMessageAndEndsWithZero) {
  run_->StartItems(GetParam());
  ExpectNotStarted();
  const std::vector<LogRecord> records = run_->Records();
  ASSERT_EQ(records.size(), 3U);
  EXPECT_EQ(records[2].message, kParseError);
  EXPECT_EQ(records[2].level, 8);
}

INSTANTIATE_TEST_SUITE_P(
    Items, LauncherFaultTest,
    testing::Values("{", "{\"0\": {\"name\": \"a\"", "items", " ", "[]", "[1]",
                    "5", "\"text\"", "true", "false", "1.5", R"({"0": 5})",
                    R"({"0": "text"})", R"({"0": []})", R"({"0": true})",
                    R"({"0": {"name": {}}})", R"({"0": {"name": ["a"]}})"));

TEST_F(LauncherTest, StopsWhatItHasStartedWhenALaterItemIsFaulty) {
  // The items between give the first one the time to fork, without which its
  // group would be killed.
  std::string items = R"({"0": )" + Sleeper("early");
  for (int i = 1; i < 100; ++i) {
    items += ", \"" + std::to_string(i) + "\": null";
  }
  items += R"(, "100": 5})";
  // Should the group be killed all the same, it is the documented outcome of
  // another case: try again.
  int status = SIGKILL;
  for (int tries = 0; status == SIGKILL && tries < kMaxTries; ++tries) {
    run_ = std::make_unique<LauncherRun>();
    run_->StartItems(items);
    status = run_->Wait();
  }
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(HasLogged(kParseError));
  const auto ends = run_->Await(End("early"));
  EXPECT_TRUE(ends.at(0).message.ends_with("status = 9"));
  EXPECT_TRUE(ChildrenOf(run_->Process()).empty());
}

TEST_F(LauncherTest, ASigtermDuringTheExitChangesNothing) {
  std::string items = "{";
  for (const int i : {0, 1, 2}) {
    items += "\"" + std::to_string(i) +
             "\": " + Sleeper("early" + std::to_string(i)) + ", ";
  }
  for (int i = 3; i < 300; ++i) {
    items += "\"" + std::to_string(i) + "\": null, ";
  }
  items += R"("300": 5})";
  // As above, the group may be killed.
  int status = SIGKILL;
  for (int tries = 0; status == SIGKILL && tries < kMaxTries; ++tries) {
    run_ = std::make_unique<LauncherRun>();
    run_->StartItems(items);
    EXPECT_TRUE(Eventually(
        [&] { return HasLogged(kParseError) || !run_->IsRunning(); }));
    EXPECT_TRUE(Eventually([&] {
      run_->Signal(SIGTERM);
      return !run_->IsRunning();
    }));
    status = run_->Wait();
  }
  EXPECT_EQ(status, 0);
  EXPECT_EQ(run_->Await(" is killed. ", 3).size(), 3U);
}

// Which items run.

TEST_F(LauncherTest, WaitsForSigtermWithoutItems) {
  for (const char* const items :
       {"{}", "null", R"({"1": {"name": "a"}})", R"({"00": {"name": "a"}})",
        R"({" 1": {"name": "a"}, "+0": 1})"}) {
    LauncherRun run;
    run.StartItems(items);
    run.Await("GetLogger");
    std::this_thread::sleep_for(100ms);
    EXPECT_TRUE(run.IsRunning());
    EXPECT_TRUE(ChildrenOf(run.Process()).empty());
    const int status = run.Stop();
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(run.Records().size(), 2U);
  }
}

TEST_F(LauncherTest, StopsAtTheFirstGapInTheNumbering) {
  run_->StartItems(R"({"0": )" + Sleeper("a") + R"(, "1": )" + Sleeper("b") +
                   R"(, "3": )" + Sleeper("d") + "}");
  AwaitChildren(2);
  ExpectStops();
  EXPECT_FALSE(HasLogged(Start("d")));
}

TEST_F(LauncherTest, CountsBeyondTen) {
  std::string items = "{";
  for (int i = 0; i < 12; ++i) {
    const std::string number = std::to_string(i);
    items += (i == 0 ? "\"" : ", \"") + number + "\": " + Sleeper("n" + number);
  }
  run_->StartItems(items + "}");
  AwaitChildren(12);
  ExpectStops();
}

TEST_F(LauncherTest, SkipsItemsWithoutANameWithAMessage) {
  run_->StartItems(R"({"0": null, "1": {}, "2": {"program": "/bin/true"},
                       "3": )" +
                   Sleeper("named") + "}");
  AwaitChildren(1);
  ExpectStops();
  EXPECT_TRUE(HasLogged(Start("named")));
  const auto skipped = run_->Await(kNoName);
  EXPECT_EQ(skipped.size(), 3U);
  EXPECT_EQ(skipped.at(0).level, 8);
  EXPECT_EQ(skipped.at(0).message, kNoName);
}

TEST_F(LauncherTest, StartsAnItemWithANullNameUnderTheEmptyName) {
  run_->StartItems(R"({"0": {"name": null, "program": "/bin/sleep",
                       "argc": 1, "args": {"0": "1000"}}})");
  AwaitChildren(1);
  ExpectStops();
  EXPECT_TRUE(HasLogged(Start("")));
}

TEST_F(LauncherTest, KeepsTheLaterOfTwoItemsOfOneName) {
  const std::string items =
      R"({"0": )" + Sleeper("twin") + R"(, "1": )" + Sleeper("other") +
      R"(, "2": {"name": "twin", "program": "/bin/sleep", "argc": 1,
          "args": {"0": "2000"}}})";
  // While the earlier twin has not forked, replacing it kills the launcher's
  // process group. That is as required, so the test tries again.
  const auto has_replaced = [&] {
    std::multiset<std::string> lines;
    for (const pid_t child : ChildrenOf(run_->Process())) {
      lines.insert(CommandLine(child));
    }
    return lines ==
           std::multiset<std::string>{"/bin/sleep 1000", "/bin/sleep 2000"};
  };
  for (int tries = 0; !run_->IsRunning(); ++tries) {
    ASSERT_LT(tries, kMaxTries);
    run_ = std::make_unique<LauncherRun>();
    run_->StartItems(items);
    EXPECT_TRUE(
        Eventually([&] { return !run_->IsRunning() || has_replaced(); }));
  }
  const auto ends = run_->Await(End("twin"));
  ASSERT_EQ(ends.size(), 1U);
  EXPECT_TRUE(ends[0].message.ends_with("status = 9")) << ends[0].message;
  AwaitChildren(2);
  ExpectStops();
}

TEST_F(LauncherTest, ReadsTheItemsFileUpToItsFirstNul) {
  using std::string_literals::operator""s;
  run_->StartItems(R"({"0": )" + Sleeper("a") + "}" + "\0garbage"s);
  AwaitChildren(1);
  ExpectStops();
}

TEST_F(LauncherTest, SpinsOnADirectoryGivenAsItemsFile) {
  run_->Start({"alpha", run_->Root()});
  const std::string stat = "/proc/" + std::to_string(run_->Process()) + "/stat";
  const auto user_time = [&] {
    std::ifstream file(stat);
    std::string field;
    for (int i = 0; i < 14; ++i) {
      file >> field;
    }
    return std::stol(field);
  };
  EXPECT_TRUE(Eventually([&] { return user_time() > 10; }))
      << "it uses processor time for ever";
  run_->Signal(SIGTERM);
  const long before = user_time();
  EXPECT_TRUE(Eventually([&] { return user_time() > before + 10; }))
      << "a SIGTERM only empties the map and notifies";
  EXPECT_TRUE(run_->Records().empty());
  EXPECT_TRUE(run_->IsRunning());
}

TEST_F(LauncherTest, AProgramThatIsNoTextEndsTheWholeLauncher) {
  run_->StartItems(R"({"0": {"name": "a", "program": {}}})");
  const int status = run_->Wait();
  EXPECT_EQ(WTERMSIG(status), SIGABRT);
}

TEST_F(LauncherTest, AnEmptyProgramEndsWithTheWholeProcessGroup) {
  run_->StartItems(R"({"0": )" + Sleeper("bystander") +
                   R"(, "1": {"name": "empty"}})");
  EXPECT_EQ(run_->Wait(), SIGKILL);
  EXPECT_TRUE(HasLogged("[LAUNCHER  ] program path of empty is empty"));
  EXPECT_TRUE(Eventually([&] { return kill(-run_->Process(), 0) == -1; }))
      << "something of the group is left";
}

// Descriptors.

TEST_F(LauncherTest, ReadsTheItemsFileOnDescriptorZero) {
  const std::string fifo = run_->Root() / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  run_->Start({"alpha", fifo});
  const int writer = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
  EXPECT_TRUE(Eventually([&] {
    const auto open_files = DescriptorsOf(run_->Process());
    return open_files.contains(0) && open_files.at(0) == fifo;
  }));
  const auto descriptors = DescriptorsOf(run_->Process());
  EXPECT_FALSE(descriptors.contains(1));
  EXPECT_FALSE(descriptors.contains(2));
  ASSERT_EQ(write(writer, "{}", 2), 2);
  close(writer);
  run_->Await("GetLogger");
  ExpectStops();
}

TEST_F(LauncherTest, ChildrenInheritNothingButWhatTheLauncherWasGiven) {
  run_->StartItems(R"({"0": )" + Sleeper("a") + "}", [] {
    for (int i = 3; i < 1024; ++i) {
      close(i);
    }
    dup2(0, 77);
  });
  const std::vector<pid_t> children = AwaitChildren(1);
  // The program's own loader opens files at first.
  EXPECT_TRUE(Eventually([&] {
    const auto descriptors = DescriptorsOf(children.at(0));
    return CommandLine(children[0]) == "/bin/sleep 1000" &&
           descriptors.size() == 1 && descriptors.contains(77);
  }));
  ExpectStops();
}

// Signals.

TEST_F(LauncherTest, ChildrenHaveTheSignalsThatTheLauncherWasStartedWith) {
  run_->StartItems(R"({"0": )" + Sleeper("a") + "}", [] {
    signal(SIGHUP, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
  });
  const pid_t child = AwaitChildren(1).at(0);
  EXPECT_TRUE(
      Eventually([&] { return CommandLine(child) == "/bin/sleep 1000"; }));
  EXPECT_EQ(StatusSignals(child, "SigBlk"),
            With(StatusSignals(getpid(), "SigBlk"), SIGUSR1));
  EXPECT_EQ(StatusSignals(child, "SigIgn"),
            With(StatusSignals(getpid(), "SigIgn"), SIGHUP));
  kill(child, SIGTERM);
  EXPECT_TRUE(run_->Await(End("a")).at(0).message.ends_with("status = 15"));
  AwaitChildren(1);
  ExpectStops();
}

TEST_F(LauncherTest, NoThreadBlocksSigterm) {
  run_->StartItems(R"({"0": )" + Sleeper("a") + "}");
  AwaitChildren(1);
  const std::vector<pid_t> threads = ThreadsOf(run_->Process());
  EXPECT_GE(threads.size(), 3U);
  for (const pid_t thread : threads) {
    // The C library blocks all signals while it makes a thread.
    EXPECT_TRUE(Eventually(
        [&] { return !StatusSignals(thread, "SigBlk").contains(SIGTERM); }));
    EXPECT_TRUE(StatusSignals(thread, "SigCgt").contains(SIGTERM));
  }
  ExpectStops();
}

// The stop.

TEST_F(LauncherTest, SigtermKillsAllChildrenAndEndsWithOne) {
  run_->StartItems(R"({"0": )" + Sleeper("a") + R"(, "1": )" + Sleeper("b") +
                   R"(, "2": )" + Sleeper("c") + "}");
  const std::vector<pid_t> children = AwaitChildren(3);
  ExpectStops();
  for (const pid_t child : children) {
    EXPECT_EQ(kill(child, 0), -1);
  }
  for (const char* const name : {"a", "b", "c"}) {
    const auto ends = run_->Await(End(name));
    ASSERT_EQ(ends.size(), 1U);
    EXPECT_TRUE(ends[0].message.ends_with("status = 9")) << ends[0].message;
  }
}

// The kernel picks the thread, which may be one that the stop waits for.
TEST_F(LauncherTest, ManySigtermsOnAnyThreadsStopItLikeOne) {
  run_->StartItems(R"({"0": )" + Sleeper("a") + R"(, "1": )" + Sleeper("b") +
                   "}");
  AwaitChildren(2);
  for (const pid_t thread : ThreadsOf(run_->Process())) {
    if (thread != run_->Process()) {
      SignalThread(run_->Process(), thread, SIGTERM);
    }
  }
  ExpectStops();
  EXPECT_EQ(run_->Await(" is killed. ", 2).size(), 2U);
}

TEST_F(LauncherTest, StopsTheChildrenOneAfterAnotherInTheMapsOrder) {
  constexpr int kItems = 8;
  std::unordered_map<std::string, int> map;
  std::string items = "{";
  for (int i = 0; i < kItems; ++i) {
    const std::string name = "item" + std::to_string(i);
    map[name] = i;
    items +=
        (i == 0 ? "\"" : ", \"") + std::to_string(i) + "\": " + Sleeper(name);
  }
  run_->StartItems(items + "}");
  run_->AwaitReady(kItems);
  ExpectStops();
  const auto ends = run_->Await(" is killed. ", kItems);
  ASSERT_EQ(ends.size(), kItems);
  std::size_t i = 0;
  for (const auto& [name, number] : map) {
    EXPECT_TRUE(ends[i].message.starts_with(End(name))) << ends[i].message;
    if (i > 0) {
      EXPECT_GE(ends[i].time - ends[i - 1].time, 50ms);
    }
    ++i;
  }
}

TEST_F(LauncherTest, ASigtermBeforeTheWaitIsNotRemembered) {
  const std::string fifo = run_->Root() / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  run_->Start({"alpha", fifo});
  const int writer = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
  run_->AwaitReading();
  run_->Signal(SIGTERM);
  run_->AwaitReading();
  const std::string items = R"({"0": )" + Sleeper("a") + "}";
  ASSERT_EQ(write(writer, items.data(), items.size()),
            static_cast<ssize_t>(items.size()));
  close(writer);
  AwaitChildren(1);
  std::this_thread::sleep_for(200ms);
  EXPECT_TRUE(run_->IsRunning());
  EXPECT_EQ(ChildrenOf(run_->Process()).size(), 1U);
  ExpectStops();
}

TEST_F(LauncherTest, OtherSignalsKeepTheirEffect) {
  run_->StartItems("{}");
  run_->Await("GetLogger");
  run_->Signal(SIGINT);
  EXPECT_EQ(run_->Wait(), SIGINT);
}

TEST_F(LauncherTest, KeepsAnEndedProgramRunning) {
  run_->StartItems(R"({"0": {"name": "tick", "program": "/bin/sh", "argc": 2,
                       "args": {"0": "-c", "1": "exit 3"}}})");
  const auto ends = run_->Await("status = 768", 3);
  EXPECT_TRUE(ends.at(0).message.starts_with(End("tick")));
  ExpectStops();
}

}  // namespace
