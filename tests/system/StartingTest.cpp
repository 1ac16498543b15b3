// The real launcher, from its arguments to its running items.

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

#include "environment/Logging.h"
#include "launcher/Messages.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SystemLog.h"

namespace {

using namespace std::chrono_literals;

// Its SIGKILL may go to the launcher's own group, by design. The test tries
// again.
constexpr int kMaxTries = 200;

class StartingTest : public testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_SANDBOX();
    run_ = std::make_unique<LauncherRun>();
  }

  // Expects the launcher to end by itself with status 0.
  void ExpectNotStarted() { EXPECT_EQ(run_->Wait(), 0); }

  // Starts the launcher on `items`, expects `count` children and stops it.
  void RunItems(const std::string& items, int count) {
    run_->StartItems(items);
    run_->AwaitChildren(count);
    run_->ExpectStops();
  }
  void RunOneItem() { RunItems(ItemsFile({Sleeper("a")}), 1); }

  // Starts the launcher without items, waits for `message` and stops it.
  void RunUntil(const std::string& message) {
    run_->StartItems("{}");
    run_->Await(message);
    run_->ExpectStops();
  }

  std::unique_ptr<LauncherRun> run_;
};

// Arguments and events.

constexpr const char* kNoLogEvent =
    "Tamrel Launcher for alpha : Failed to initialize logger";

class StartingEventTest : public StartingTest {
 protected:
  void SetUp() override {
    StartingTest::SetUp();
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

  void ExpectWrongParameters(const std::vector<std::string>& arguments) {
    run_->Start(arguments);
    ExpectNotStarted();
    ExpectEvent(std::string(kEventSource) + " : " + kWrongParametersEvent);
    EXPECT_TRUE(run_->Records().empty()) << "no log is set up";
  }

  // Expects the launcher with `library` in the place of the logger library to
  // say that it cannot log, and to run.
  void ExpectRunsWithoutLog(const std::string& library) {
    run_->UseLibrary(library);
    RunOneItem();
    ExpectEvent(kNoLogEvent);
  }

  std::unique_ptr<SystemLog> system_log_;
};

TEST_F(StartingEventTest, WithoutArgumentsWritesAnEventAndEndsWithZero) {
  ExpectWrongParameters({});
}

TEST_F(StartingEventTest, WithOneArgumentWritesAnEventAndEndsWithZero) {
  ExpectWrongParameters({"alpha"});
}

TEST_F(StartingEventTest, WritesNoEventWhenNothingFails) {
  RunUntil("GetLogger");
  EXPECT_TRUE(system_log_->Lines().empty());
}

TEST_F(StartingEventTest, RunsOnWithoutALoggerThatRefuses) {
  run_->SetEnvironment("RECORDER", "refuse");
  run_->StartItems(R"({"0": )" + Sleeper("a") + ", \"1\": {}}");
  ExpectEvent(kNoLogEvent);
  run_->AwaitChildren(1);
  run_->ExpectStops();
  EXPECT_EQ(run_->Records().size(), 1U) << "nothing but InitLogger was called";
  EXPECT_TRUE(system_log_->Lines().empty()) << "one event and no more";
}

TEST_F(StartingEventTest, RunsOnWithoutALoggerLibrary) {
  ExpectRunsWithoutLog("");
}

TEST_F(StartingEventTest, RunsOnWithALibraryThatCannotBeLoaded) {
  ExpectRunsWithoutLog(run_->Directory().Write("no-library", "text"));
}

TEST_F(StartingEventTest, RunsOnWithALibraryThatLacksGetLogger) {
  ExpectRunsWithoutLog(HALF_LIBRARY);
}

TEST_F(StartingEventTest, RunsOnWithALibraryThatLacksInitLogger) {
  ExpectRunsWithoutLog(OTHER_HALF_LIBRARY);
}

TEST_F(StartingEventTest, RunsOnWithALibraryThatThrows) {
  run_->SetEnvironment("RECORDER", "throw");
  RunOneItem();
  ExpectEvent(kNoLogEvent);
}

TEST_F(StartingEventTest, RunsOnSilentlyWhenTheLibraryGivesNoLogger) {
  for (const char* const recorder : {"silent", "fail"}) {
    run_ = std::make_unique<LauncherRun>();
    run_->SetEnvironment("RECORDER", recorder);
    RunOneItem();
    EXPECT_EQ(run_->Records().size(), 2U) << "InitLogger and GetLogger";
  }
  EXPECT_TRUE(system_log_->Lines().empty());
}

TEST_F(StartingEventTest, NeitherLogsNorWritesAnEventWithoutAnItemsFile) {
  run_->Start({"alpha", "/nonexistent/items.json"});
  ExpectNotStarted();
  EXPECT_TRUE(run_->Records().empty()) << "InitLogger must not be called";
  EXPECT_TRUE(system_log_->Lines().empty());
}

TEST_F(StartingEventTest, NeitherLogsNorWritesAnEventOnAnEmptyItemsFile) {
  run_->StartItems("");
  ExpectNotStarted();
  EXPECT_TRUE(run_->Records().empty()) << "InitLogger must not be called";
  EXPECT_TRUE(system_log_->Lines().empty());
}

// No pipe fits above the standard descriptors, so there is no stop thread.
TEST_F(StartingEventTest, StartsWithoutAPipeForSigterm) {
  run_->StartItems("{}", [] {
    for (int i = 3; i < 1024; ++i) {
      close(i);
    }
    constexpr rlimit kFour{4, 4};
    setrlimit(RLIMIT_NOFILE, &kFour);
  });
  run_->AwaitWaiting();
  EXPECT_EQ(ThreadsOf(run_->Process()).size(), 1U);
  run_->Signal(SIGTERM);
  EXPECT_EQ(run_->Wait(), 1 << 8);
  EXPECT_TRUE(system_log_->Lines().empty());
}

TEST_F(StartingTest, IgnoresFurtherArguments) {
  const std::string items = run_->Directory().Write("items.json", "{}");
  run_->Start({"alpha", items, "third", "--fourth"});
  run_->Await("GetLogger");
  run_->ExpectStops();
}

// Setting up the log.

TEST_F(StartingTest, OpensTheLoggerOnTheUsersLogDirectory) {
  RunUntil("GetLogger");
  const std::string directory = run_->Home() / "Library/Logs/Demo/qvxlog";
  EXPECT_EQ(run_->Messages(),
            (std::vector<std::string>{"InitLogger " + directory,
                                      "GetLogger 2 launcher 8"}));
}

TEST_F(StartingTest, TakesTheLevelFromLogIni) {
  run_->Directory().Write("home/Library/Application Support/Demo/log.ini",
                          "[LOG]\nLEVEL=VERBOSE\n");
  RunUntil("GetLogger 2 launcher 17");
}

TEST_F(StartingTest, StartsWithAnEmptyName) {
  run_->Directory().Write("Contents/Frameworks/qvxapi.ini", "");
  run_->Directory().Write("home/Library/Application Support/log.ini",
                          "[LOG]\nLEVEL=DEBUG\n");
  RunUntil("GetLogger 2 launcher 1");
  EXPECT_EQ(run_->Messages()[0],
            "InitLogger " + run_->Home().string() + "/Library/Logs//qvxlog");
}

TEST_F(StartingTest, NeverLogsThatItReads) {
  RunOneItem();
  for (const std::string& message : run_->Messages()) {
    EXPECT_EQ(message.find("Read data"), std::string::npos);
  }
}

// Items that end the start-up.

class FaultyItemsTest : public StartingTest,
                        public testing::WithParamInterface<std::string> {};

TEST_P(FaultyItemsTest, LogsOneMessageAndEndsWithZero) {
  run_->StartItems(GetParam());
  ExpectNotStarted();
  const std::vector<LogRecord> records = run_->Records();
  ASSERT_EQ(records.size(), 3U);
  EXPECT_EQ(records[2].message, kParseFailedMessage);
  EXPECT_EQ(records[2].level, 8);
}

INSTANTIATE_TEST_SUITE_P(
    Items, FaultyItemsTest,
    testing::Values("{", "{\"0\": {\"name\": \"a\"", "items", " ", "[]", "[1]",
                    "5", "\"text\"", "true", "false", "1.5", R"({"0": 5})",
                    R"({"0": "text"})", R"({"0": []})", R"({"0": true})",
                    R"({"0": {"name": {}}})", R"({"0": {"name": ["a"]}})"));

TEST_F(StartingTest, StopsEarlierItemsWhenALaterOneIsFaulty) {
  // The items between give the first one time to fork. Stopping it before that
  // kills the launcher's group.
  std::string items = R"({"0": )" + Sleeper("early");
  for (int i = 1; i < 100; ++i) {
    items += ", \"" + std::to_string(i) + "\": null";
  }
  items += R"(, "100": 5})";
  // The group may be killed all the same.
  int status = SIGKILL;
  for (int tries = 0; status == SIGKILL && tries < kMaxTries; ++tries) {
    run_ = std::make_unique<LauncherRun>();
    run_->StartItems(items);
    status = run_->Wait();
  }
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(run_->HasLogged(kParseFailedMessage));
  EXPECT_EQ(run_->AwaitEnds("early").at(0).status, SIGKILL);
  EXPECT_TRUE(ChildrenOf(run_->Process()).empty());
}

// Which items run.

TEST_F(StartingTest, WaitsForSigtermWithoutItems) {
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

TEST_F(StartingTest, StopsAtTheFirstGapInTheNumbering) {
  RunItems(R"({"0": )" + Sleeper("a") + R"(, "1": )" + Sleeper("b") +
               R"(, "3": )" + Sleeper("d") + "}",
           2);
  EXPECT_FALSE(run_->HasLogged(Message(kStartMessage, "d")));
}

TEST_F(StartingTest, CountsBeyondTen) {
  std::string items = "{";
  for (int i = 0; i < 12; ++i) {
    const std::string number = std::to_string(i);
    items += (i == 0 ? "\"" : ", \"") + number + "\": " + Sleeper("n" + number);
  }
  RunItems(items + "}", 12);
}

TEST_F(StartingTest, SkipsItemsWithoutANameWithAMessage) {
  RunItems(R"({"0": null, "1": {}, "2": {"program": "/bin/true"},
                       "3": )" +
               Sleeper("named") + "}",
           1);
  EXPECT_TRUE(run_->HasLogged(Message(kStartMessage, "named")));
  const auto skipped = run_->Await(kNamelessMessage);
  EXPECT_EQ(skipped.size(), 3U);
  EXPECT_EQ(skipped.at(0).level, 8);
  EXPECT_EQ(skipped.at(0).message, kNamelessMessage);
}

TEST_F(StartingTest, StartsAnItemWithANullNameUnderTheEmptyName) {
  RunItems(R"({"0": {"name": null, "program": "/bin/sleep",
                       "argc": 1, "args": {"0": "1000"}}})",
           1);
  EXPECT_TRUE(run_->HasLogged(Message(kStartMessage, "")));
}

TEST_F(StartingTest, KeepsTheLaterOfTwoItemsOfOneName) {
  const std::string items =
      R"({"0": )" + Sleeper("twin") + R"(, "1": )" + Sleeper("other") +
      R"(, "2": {"name": "twin", "program": "/bin/sleep", "argc": 1,
          "args": {"0": "2000"}}})";
  // Replacing an earlier twin that has not forked kills the launcher's process
  // group. It is over once the earlier twin's end is logged.
  const auto has_replaced = [&] {
    std::multiset<std::string> lines;
    for (const pid_t child : ChildrenOf(run_->Process())) {
      lines.insert(CommandLine(child));
    }
    return !run_->Ends("twin").empty() &&
           lines ==
               std::multiset<std::string>{"/bin/sleep 1000", "/bin/sleep 2000"};
  };
  for (int tries = 0; !run_->IsRunning(); ++tries) {
    ASSERT_LT(tries, kMaxTries);
    run_ = std::make_unique<LauncherRun>();
    run_->StartItems(items);
    EXPECT_TRUE(
        Eventually([&] { return !run_->IsRunning() || has_replaced(); }));
  }
  const auto ends = run_->AwaitEnds("twin");
  ASSERT_EQ(ends.size(), 1U);
  EXPECT_EQ(ends[0].status, SIGKILL);
  run_->AwaitChildren(2);
  run_->ExpectStops();
}

TEST_F(StartingTest, ReadsTheItemsFileUpToItsFirstNul) {
  using std::string_literals::operator""s;
  RunItems(ItemsFile({Sleeper("a")}) + "\0garbage"s, 1);
}

TEST_F(StartingTest, SpinsOnADirectoryGivenAsItemsFile) {
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
      << "it uses processor time forever";
  run_->Signal(SIGTERM);
  const long before = user_time();
  EXPECT_TRUE(Eventually([&] { return user_time() > before + 10; }))
      << "a SIGTERM only empties the map and notifies";
  EXPECT_TRUE(run_->Records().empty());
  EXPECT_TRUE(run_->IsRunning());
}

TEST_F(StartingTest, AProgramThatIsNotAStringEndsTheWholeLauncher) {
  run_->StartItems(R"({"0": {"name": "a", "program": {}}})");
  const int status = run_->Wait();
  EXPECT_EQ(WTERMSIG(status), SIGABRT);
  EXPECT_FALSE(run_->HasLogged(Message(kStartMessage, "a")));
}

TEST_F(StartingTest, ReadsTheItemsFileOnDescriptorZero) {
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
  run_->ExpectStops();
}

}  // namespace
