// Every line that the launcher and its logger library can write, written by
// them and read back by launcher-log.

#include <gtest/gtest.h>
#include <json/json.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/json/JsonObject.h"
#include "common/util/StringHelpers.h"
#include "launcher/Messages.h"
#include "logger/Format.h"
#include "tests/support/Command.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/LogReader.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tools/log/LogLine.h"
#include "tools/log/LogReader.h"

namespace {

namespace fs = std::filesystem;

using Kinds = std::set<LogEventKind>;

std::string Shell(const std::string& name, const std::string& command) {
  return R"({"name": ")" + name +
         R"(", "program": "/bin/sh", "argc": 2, "args": {"0": "-c", "1": ")" +
         command + R"("}})";
}

// The message that has the event's meaning.
std::string MessageWith(const LogEvent& event) {
  const std::string name(event.name);
  switch (event.kind) {
    case LogEventKind::kStart:
      return string_format(kStartMessage, name.c_str());
    case LogEventKind::kEnd:
      return string_format(kEndMessage, name.c_str(),
                           static_cast<int>(event.child),
                           static_cast<int>(event.child), event.status);
    case LogEventKind::kForkFailed:
      return string_format(kForkFailedMessage, name.c_str());
    case LogEventKind::kNoProgram:
      return string_format(kNoProgramMessage, name.c_str());
    case LogEventKind::kNameless:
      return kNamelessMessage;
    case LogEventKind::kParseFailed:
      return kParseFailedMessage;
    case LogEventKind::kLost:
      return string_format(kLostLinesMessage,
                           static_cast<unsigned long long>(event.lost),
                           event.error);
    default:
      return "not known";
  }
}

class LogRoundTrip : public testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_SANDBOX();
    launcher_.UseLibrary(LOGGER_LIBRARY);
    launcher_.Directory().Write("home/Library/Application Support/Demo/log.ini",
                                "[LOG]\nLEVEL=DEBUG\n");
  }

  fs::path LogDirectory() const {
    return launcher_.Home() / "Library/Logs/Demo/qvxlog";
  }
  fs::path Log() const { return LogDirectory() / LogFileName("launcher"); }

  // The log's events, which stay valid until the next call.
  std::vector<LogEvent> Events() {
    lines_.clear();
    LogReader reader(
        Log(), [this](std::string_view line) { lines_.emplace_back(line); });
    std::vector<LogEvent> events;
    if (reader.Open()) {
      reader.ReadAll();
    }
    for (const std::string& line : lines_) {
      const auto event = ParseLine(line);
      EXPECT_TRUE(event) << line;
      events.push_back(event.value_or(LogEvent{}));
    }
    return events;
  }

  std::size_t Count(LogEventKind kind) {
    return static_cast<std::size_t>(
        std::ranges::count(Events(), kind, &LogEvent::kind));
  }

  // Expects every line to be recognised with its meaning. Returns the kinds.
  Kinds ExpectMeanings() {
    Kinds kinds;
    const std::vector<LogEvent> events = Events();
    for (std::size_t i = 0; i < events.size(); ++i) {
      kinds.insert(events[i].kind);
      EXPECT_EQ(events[i].fragments, 0U) << lines_[i];
      if (events[i].kind != LogEventKind::kCut) {
        EXPECT_EQ(MessageWith(events[i]), MessageOf(lines_[i]));
      }
      EXPECT_TRUE(events[i].IsFromForkedChild() ||
                  events[i].process == launcher_.Process())
          << lines_[i];
    }
    return kinds;
  }

  // The names of the items in the events of `kind`, unescaped.
  std::set<std::string> NamesIn(LogEventKind kind) {
    std::set<std::string> names;
    for (const LogEvent& event : Events()) {
      if (event.kind == kind) {
        names.insert(Unescaped(event.name));
      }
    }
    return names;
  }

  JsonObject Report() const {
    return JsonObject(
        RunCommand({LAUNCHER_LOG, "--json", Log()}).output.c_str());
  }
  int Number(const char* key) const { return static_cast<int>(Report()[key]); }

  // The report of launcher-log on an item.
  JsonObject Item(const std::string& name) const {
    JsonObject report(
        RunCommand({LAUNCHER_LOG, "--json", "--item", name, Log()})
            .output.c_str());
    return JsonObject(report["items"][0].ToText().c_str());
  }

  bool HasEventLine(const std::string& end) const {
    return RunCommand({LAUNCHER_LOG, "--events", Log()})
               .output.find(" " + end + "\n") != std::string::npos;
  }

  LauncherRun launcher_;
  std::deque<std::string> lines_;
};

TEST_F(LogRoundTrip, ReadsTheHistoryOfItems) {
  const std::vector<std::string> odd_names{
      "a\nb",
      "\x1b[31m",
      "C:\\new",
      "x 1 is killed. ret = 1, status = 0",
      "Start to fork x",
      "",
      "2026-11-21T06:20:31.123456Z ERROR 1:2 x",
      "cut\\...",
      "\xC3\xA9\xE2\x80\xAE"};
  std::vector<std::string> items{
      Shell("exits", "exit 3"), Shell("crashes", "kill -SEGV $$"),
      Sleeper("sleeper"), R"({"program": "/bin/true"})"};
  for (const std::string& name : odd_names) {
    items.push_back(R"({"name": )" + Json::valueToQuotedString(name.c_str()) +
                    R"(, "program": "/bin/true"})");
  }
  launcher_.StartItems(ItemsFile(items));
  std::set<std::string> ending(odd_names.begin(), odd_names.end());
  ending.insert({"exits", "crashes"});
  EXPECT_TRUE(
      Eventually([&] { return NamesIn(LogEventKind::kEnd) == ending; }));
  EXPECT_TRUE(Eventually([&] { return Count(LogEventKind::kStart) > 30; }));
  EXPECT_TRUE(Eventually(
      [&] { return NamesIn(LogEventKind::kStart).contains("sleeper"); }));
  EXPECT_EQ(static_cast<std::string>(Item("sleeper")["state"]), "running");
  EXPECT_TRUE(Eventually([&] {
    return static_cast<std::string>(Item("exits")["state"]) == "looping";
  }));
  launcher_.Stop();
  EXPECT_EQ(ExpectMeanings(), (Kinds{LogEventKind::kStart, LogEventKind::kEnd,
                                     LogEventKind::kNameless}));
  ending.insert("sleeper");
  EXPECT_EQ(NamesIn(LogEventKind::kStart), ending);
  for (const LogEvent& event : Events()) {
    if (event.kind == LogEventKind::kEnd && event.name == "exits") {
      EXPECT_TRUE(event.status == 3 << 8 || event.status == SIGKILL);
      EXPECT_GT(event.child, launcher_.Process());
    }
  }
  EXPECT_EQ(static_cast<int>(Item("sleeper")["last_end"]["status"]), SIGKILL);
  EXPECT_EQ(static_cast<std::string>(Item("crashes")["causes"][0]["text"])
                .substr(0, 3),
            "SIG");
  EXPECT_EQ(Number("nameless_items"), 1);
  EXPECT_EQ(Number("unreadable_lines"), 0);
  EXPECT_EQ(static_cast<std::size_t>(Number("lines")), lines_.size());
  EXPECT_TRUE(HasEventLine("an item has no name and is skipped"));
}

// Its forked child may kill the launcher, whose process group it is in.
TEST_F(LogRoundTrip, ReadsThatAProgramIsMissing) {
  launcher_.StartItems(ItemsFile({R"({"name": "pathless"})"}));
  EXPECT_TRUE(Eventually([&] { return Count(LogEventKind::kNoProgram) > 0; }));
  EXPECT_TRUE(ExpectMeanings().contains(LogEventKind::kNoProgram));
  EXPECT_EQ(NamesIn(LogEventKind::kNoProgram),
            std::set<std::string>{"pathless"});
  EXPECT_TRUE(HasEventLine("pathless has an empty program path"));
}

TEST_F(LogRoundTrip, ReadsThatTheItemsCouldNotBeParsed) {
  launcher_.StartItems("{");
  EXPECT_EQ(launcher_.Wait(), 0);
  EXPECT_EQ(ExpectMeanings(), Kinds{LogEventKind::kParseFailed});
  EXPECT_EQ(Number("failed_launches"), 1);
  EXPECT_EQ(Number("launcher_count"), 1);
  EXPECT_TRUE(HasEventLine("the items file could not be parsed"));
}

TEST_F(LogRoundTrip, ReadsAChain) {
  launcher_.StartItems(
      ItemsFile({R"({"name": "chain", "program": "/no/such/program"})"}));
  EXPECT_TRUE(Eventually([&] { return Count(LogEventKind::kStart) >= 4; }));
  EXPECT_EQ(ExpectMeanings(), Kinds{LogEventKind::kStart});
  JsonObject chain = Item("chain");
  EXPECT_EQ(static_cast<std::string>(chain["state"]), "chain");
  EXPECT_EQ(static_cast<int>(chain["starts"]), 1);
  EXPECT_GE(static_cast<int>(chain["chained_starts"]), 3);
  EXPECT_TRUE(HasEventLine("chain cannot be executed; tried again"));
}

TEST_F(LogRoundTrip, ReadsTheNumberOfLostLines) {
  launcher_.StartItems(ItemsFile({Tick("tick")}));
  EXPECT_TRUE(Eventually([&] { return Count(LogEventKind::kEnd) > 0; }));
  const fs::path away = launcher_.Root() / "away";
  EXPECT_TRUE(Eventually([&] {
    fs::rename(LogDirectory(), away);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    fs::rename(away, LogDirectory());
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    return Count(LogEventKind::kLost) > 0;
  }));
  launcher_.Stop();
  EXPECT_EQ(ExpectMeanings(), (Kinds{LogEventKind::kStart, LogEventKind::kEnd,
                                     LogEventKind::kLost}));
  unsigned long long lost = 0;
  for (const LogEvent& event : Events()) {
    EXPECT_TRUE(event.kind != LogEventKind::kLost ||
                (event.lost > 0 && event.error == ENOENT));
    lost += event.lost;
  }
  EXPECT_EQ(static_cast<unsigned long long>(Number("lost_lines")), lost);
  EXPECT_GT(lost, 0U);
  const CommandResult alert = RunCommand({LAUNCHER_LOG, "--alert", Log()});
  EXPECT_EQ(alert.status, 1);
  EXPECT_NE(alert.output.find("lost lines: " + std::to_string(lost)),
            std::string::npos);
}

TEST_F(LogRoundTrip, ReadsACutMessage) {
  constexpr std::size_t kLong = 2 * 1024 * 1024;
  launcher_.StartItems(ItemsFile({Sleeper(std::string(kLong, 'x'))}));
  EXPECT_TRUE(Eventually([&] { return !Events().empty(); }));
  EXPECT_EQ(ExpectMeanings(), Kinds{LogEventKind::kCut});
  EXPECT_EQ(Number("cut_lines"), 1);
}

#ifdef FAILING_CALLS
TEST_F(LogRoundTrip, ReadsAFailedFork) {
  launcher_.SetEnvironment("LD_PRELOAD", FAILING_CALLS);
  launcher_.SetEnvironment("FAILING", "fork:1+");
  launcher_.SetEnvironment("FAILED", launcher_.Root() / "failed");
  launcher_.SetEnvironment("KILLS", launcher_.Root() / "kills");
  launcher_.StartItems(ItemsFile({Sleeper("given up")}));
  EXPECT_TRUE(Eventually([&] { return Events().size() == 2; }));
  EXPECT_EQ(ExpectMeanings(),
            (Kinds{LogEventKind::kStart, LogEventKind::kForkFailed}));
  EXPECT_EQ(NamesIn(LogEventKind::kForkFailed),
            std::set<std::string>{"given up"});
  JsonObject item = Item("given up");
  EXPECT_EQ(static_cast<std::string>(item["state"]), "no fork");
  EXPECT_EQ(static_cast<int>(item["failed_forks"]), 1);
  EXPECT_TRUE(HasEventLine("given up could not be forked and is given up"));
}
#endif

}  // namespace
