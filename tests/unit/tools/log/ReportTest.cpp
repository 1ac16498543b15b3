#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <sstream>

#include "common/json/JsonObject.h"
#include "tools/log/Report.h"
#include "tools/log/Table.h"
#include "tools/text/Characters.h"

namespace {

constexpr Micros kSecond = kMicrosPerSecond;
constexpr Micros kBegin = 1795242031 * kSecond;  // 2026-11-21T06:20:31Z

void Add(History* history, Micros time, LogEventKind kind,
         const std::string& name, int status = 0) {
  LogEvent event;
  event.time = kBegin + time;
  event.kind = kind;
  event.name = name;
  event.status = status;
  event.child = 99;
  event.process = 10;
  event.thread = 11;
  history->Add(event);
}

constexpr std::int64_t kLauncher = 10;

bool IsLauncher(std::int64_t process) { return process == kLauncher; }
bool IsNone(std::int64_t) { return false; }

Report At(const History& history, Micros now,
          std::vector<std::string> files = {"/l/launcher.log"}) {
  return {history,
          "/l/launcher.log",
          std::move(files),
          {kBegin + now, &IsLauncher}};
}

std::string Table(const History& history, Micros now,
                  std::size_t width = kAnyWidth) {
  return At(history, now).Table(width);
}

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

void AddLost(History* history, std::uint64_t lines) {
  LogEvent lost;
  lost.kind = LogEventKind::kLost;
  lost.time = kBegin;
  lost.lost = lines;
  lost.error = ENOSPC;
  history->Add(lost);
}

TEST(LogReport, IsATable) {
  History history;
  Add(&history, 0, LogEventKind::kStart, "backup");
  Add(&history, 7 * kSecond, LogEventKind::kEnd, "backup", 139);
  Add(&history, 8 * kSecond, LogEventKind::kStart, "backup");
  Add(&history, 8 * kSecond, LogEventKind::kEnd, "数\\n", 768);
  EXPECT_EQ(
      At(history, 20 * kSecond, {"/l/launcher.1.log", "/l/launcher.log"})
          .Table(kAnyWidth),
      "/l/launcher.log and 1 older\n"
      "2026-11-21T06:20:31Z to 2026-11-21T06:20:39Z, lines: 4\n"
      "launchers: 1, last line at 2026-11-21T06:20:39Z by process 10\n"
      "level: DEBUG\n"
      "\n"
      "ITEM   STARTS ENDS AGO /MIN WORST LONGEST  UP  STATE     ENDED BY\n"
      "backup      2    1 13s    1     1     12s 12s  running   SIGSEGV core\n"
      "数\\n       1~    1 12s    1     1     11s 11s  running~  exit 3\n"
      "\n"
      "~ derived from the ends: only the levels VERBOSE and DEBUG log "
      "starts\n");
}

TEST(LogReport, SaysWhatTheLevelHides) {
  History history;
  Add(&history, 0, LogEventKind::kEnd, "a", 256);
  const std::string text = Table(history, kSecond);
  EXPECT_TRUE(
      Has(text, "level: above DEBUG; starts, and so chains, cannot be seen\n"));
  EXPECT_TRUE(Has(text, "~ derived from the ends"));
}

TEST(LogReport, SaysThatTheLauncherIsGone) {
  History history;
  Add(&history, 0, LogEventKind::kStart, "a");
  Report report = At(history, kSecond);
  report.present.exists = &IsNone;
  const std::string text = report.Table(kAnyWidth);
  EXPECT_TRUE(Has(text, " by process 10, no longer there\n"));
  EXPECT_TRUE(Has(text, "  gone   -\n")) << text;
  EXPECT_TRUE(Has(text, "gone (launcher no longer there): a\n"));
}

TEST(LogReport, SaysThatThereIsNoLogYet) {
  const History history;
  EXPECT_TRUE(
      At(history, 0, {})
          .Table(kAnyWidth)
          .starts_with("/l/launcher.log: does not exist yet\nlines: 0; "));
}

TEST(LogReport, TalliesTheCausesWithTheLastOneFirst) {
  History history;
  for (const int status : {256, 256, 256, 9, 9, 0, 11}) {
    Add(&history, 0, LogEventKind::kEnd, "a", status);
  }
  EXPECT_TRUE(
      Has(Table(history, 0), "  SIGSEGV, exit 1 x 3, SIGKILL x 2, exit 0\n"))
      << Table(history, 0);
}

TEST(LogReport, CutsNothingInAPipe) {
  History history;
  const std::string name(300, 'x');
  for (const int status : {0, 256, 512, 768, 1024, 9, 15}) {
    Add(&history, 0, LogEventKind::kEnd, name, status);
  }
  const std::string text = Table(history, 0);
  EXPECT_TRUE(Has(text, "\n" + name + " "));
  EXPECT_TRUE(Has(text, "): " + name + "\n"));
  EXPECT_TRUE(Has(text, "exit 4"));
}

TEST(LogReport, ReportsAStop) {
  History history;
  Add(&history, 0, LogEventKind::kStart, "sleeper");
  Add(&history, 5 * kSecond, LogEventKind::kEnd, "sleeper", 9);
  const std::string text = Table(history, 7 * kSecond);
  EXPECT_TRUE(Has(text, "  silent  SIGKILL\n")) << text;
  EXPECT_TRUE(Has(text, "silent (ended, no restart seen): sleeper\n"));
}

TEST(LogReport, ExplainsEachTilde) {
  History history;
  Add(&history, 0, LogEventKind::kEnd, "a", 9);
  EXPECT_TRUE(Has(Table(history, 0), "  running~  "));
  EXPECT_TRUE(Has(Table(history, 5 * kSecond), "  silent~  "));
  Add(&history, 6 * kSecond, LogEventKind::kStart, "a");
  EXPECT_TRUE(Has(Table(history, 6 * kSecond), "  running  "));
  EXPECT_FALSE(Has(Table(history, 6 * kSecond), "~"));
}

TEST(LogReport, DoesNotCallALoopDerived) {
  History history;
  for (int i = 0; i < 10; ++i) {
    Add(&history, i * kSecond, LogEventKind::kEnd, "a", 256);
  }
  EXPECT_TRUE(Has(Table(history, 10 * kSecond), "  looping  "));
  EXPECT_TRUE(Has(Table(history, 10 * kSecond), " 10~ "));
}

TEST(LogReport, FitsEightyColumns) {
  History history;
  const std::string name(100, 'x');
  for (int i = 0; i < 200'000; ++i) {
    Add(&history, std::int64_t{i} * 50'000, LogEventKind::kEnd, name, 26 | 128);
  }
  for (int i = 0; i < 1000; ++i) {
    for (const auto kind :
         {LogEventKind::kStart, LogEventKind::kEnd, LogEventKind::kForkFailed,
          LogEventKind::kNoProgram}) {
      Add(&history, 0, kind,
          name + std::to_string(i * 100 + static_cast<int>(kind)), 9);
    }
    Add(&history, 0, LogEventKind::kStart, name + "silent" + std::to_string(i));
    Add(&history, 0, LogEventKind::kEnd, name + "silent" + std::to_string(i));
  }
  AddLost(&history, 1'000'000'000);
  for (const Micros now : {Micros{0}, 1'000'000 * kSecond}) {
    std::istringstream lines(Table(history, now, 80));
    for (std::string line; std::getline(lines, line);) {
      EXPECT_LE(DisplayWidth(line), 80U) << line;
    }
  }
}

TEST(LogReport, NamesAsManyItemsAsFitALine) {
  History history;
  for (int i = 0; i < 20; ++i) {
    Add(&history, 0, LogEventKind::kForkFailed, "item " + std::to_string(i));
  }
  EXPECT_EQ(At(history, 0).Alerts(80),
            "no fork (given up for good): item 0, item 1, item 2, item 3 and "
            "16 more\n");
}

TEST(LogReport, CutsANameThatIsLongerThanALine) {
  History history;
  Add(&history, 0, LogEventKind::kForkFailed, std::string(100, 'x'));
  Add(&history, 0, LogEventKind::kForkFailed, "b");
  const std::string text = At(history, 0).Alerts(60);
  EXPECT_TRUE(Has(text, "): " + std::string(10, 'x'))) << text;
  EXPECT_TRUE(text.ends_with("\xE2\x80\xA6 and 1 more\n")) << text;
  EXPECT_LE(DisplayWidth(text.substr(0, text.size() - 1)), 60U) << text;
}

TEST(LogReport, ShowsTroubleAsAlerts) {
  History history;
  Add(&history, 0, LogEventKind::kStart, "fine");
  Add(&history, 0, LogEventKind::kNameless, "");
  history.AddUnrecognised();
  EXPECT_EQ(At(history, 20 * kSecond).Alerts(kAnyWidth), "");
  for (int i = 0; i < 10; ++i) {
    Add(&history, i * kSecond, LogEventKind::kEnd, "looper", 256);
  }
  Add(&history, 0, LogEventKind::kEnd, "stopped", 9);
  Add(&history, 0, LogEventKind::kForkFailed, "forkless");
  Add(&history, 0, LogEventKind::kNoProgram, "pathless");
  Add(&history, 0, LogEventKind::kParseFailed, "");
  LogEvent link;
  link.kind = LogEventKind::kStart;
  link.name = "link";
  link.process = 7;
  link.thread = 7;
  history.Add(link);
  AddLost(&history, 12);
  EXPECT_EQ(At(history, 20 * kSecond).Alerts(kAnyWidth),
            "looping (ends again and again): looper\n"
            "silent (ended, no restart seen): stopped\n"
            "chain (cannot be executed): link\n"
            "no fork (given up for good): forkless\n"
            "no path (missing or empty \"program\"): pathless\n"
            "items files that could not be parsed: 1\n"
            "lost lines: 12 (No space left on device)\n");
  const std::string text = Table(history, 20 * kSecond);
  EXPECT_TRUE(Has(text, "\nlost lines: 12 (No space left on device)\n"));
  EXPECT_TRUE(Has(text, "\nitems without a name: 1\n"));
  EXPECT_TRUE(Has(text, "\nunrecognised lines: 1\n"));
  EXPECT_FALSE(Has(text, "cut lines"));
  LogEvent cut;
  cut.kind = LogEventKind::kCut;
  history.Add(cut);
  EXPECT_TRUE(Has(Table(history, 0), "\ncut lines: 1\n"));
}

TEST(LogReport, NeverControlsATerminal) {
  History history;
  Add(&history, 0, LogEventKind::kEnd, "\x1b[31m", 0);
  EXPECT_FALSE(Has(At(history, 0, {"\x1b"}).Table(80), "\x1b"));
  EXPECT_FALSE(Has(At(history, 0).Alerts(80), "\x1b"));
  LogEvent event;
  event.kind = LogEventKind::kStart;
  event.name = "\x1b";
  EXPECT_FALSE(Has(EventLine(event), "\x1b"));
}

TEST(LogReport, IsAJsonDocument) {
  History history;
  Add(&history, 0, LogEventKind::kStart, "a\\nb");
  Add(&history, 2 * kSecond, LogEventKind::kEnd, "a\\nb", 139);
  Add(&history, 2 * kSecond, LogEventKind::kStart, "a\\nb");
  Add(&history, 3 * kSecond, LogEventKind::kForkFailed, "b\xff");
  Add(&history, 3 * kSecond, LogEventKind::kNameless, "");
  Add(&history, 3 * kSecond, LogEventKind::kParseFailed, "");
  AddLost(&history, 4);
  history.AddUnrecognised();
  JsonObject report(At(history, 5 * kSecond).Json().c_str());
  EXPECT_EQ(static_cast<std::string>(report["files"][0]), "/l/launcher.log");
  const auto number = [&](const char* key) {
    return static_cast<int>(report[key]);
  };
  EXPECT_EQ(number("lines"), 7);
  EXPECT_EQ(number("lost_lines"), 4);
  EXPECT_EQ(number("cut_lines"), 0);
  EXPECT_EQ(number("unreadable_lines"), 1);
  EXPECT_EQ(number("nameless_items"), 1);
  EXPECT_EQ(number("failed_launches"), 1);
  EXPECT_EQ(number("launcher_count"), 1);
  EXPECT_EQ(static_cast<std::string>(report["now"]), "2026-11-21T06:20:36Z");
  EXPECT_EQ(static_cast<std::string>(report["first"]), "2026-11-21T06:20:31Z");
  EXPECT_EQ(static_cast<std::string>(report["last"]), "2026-11-21T06:20:34Z");
  JsonObject launcher = report["launchers"][0];
  EXPECT_EQ(static_cast<int>(launcher["process"]), 10);
  EXPECT_TRUE(static_cast<bool>(launcher["exists"]));
  EXPECT_TRUE(static_cast<bool>(launcher["logs_starts"]));
  EXPECT_EQ(static_cast<std::string>(launcher["first"]),
            "2026-11-21T06:20:31Z");
  EXPECT_EQ(static_cast<std::string>(launcher["last"]), "2026-11-21T06:20:34Z");
  JsonObject forkless = report["items"][1];
  EXPECT_EQ(static_cast<std::string>(forkless["name"]), "b\xEF\xBF\xBD");
  EXPECT_EQ(static_cast<int>(forkless["failed_forks"]), 1);
  EXPECT_TRUE(forkless["last_end"].ToText().starts_with("null"));
  EXPECT_TRUE(forkless["uptime_ms"].ToText().starts_with("null"));
}

TEST(LogReport, HasNoTimesWithoutLines) {
  const History history;
  JsonObject report(At(history, 0).Json().c_str());
  EXPECT_FALSE(report.HasObject("first"));
  EXPECT_EQ(static_cast<int>(report["lines"]), 0);
}

TEST(LogReport, DescribesAnItemInJson) {
  History history;
  Add(&history, 0, LogEventKind::kStart, "a\\nb");
  Add(&history, 2 * kSecond, LogEventKind::kEnd, "a\\nb", 139);
  Add(&history, 2 * kSecond, LogEventKind::kStart, "a\\nb");
  JsonObject report(At(history, 3 * kSecond).Json().c_str());
  JsonObject item = report["items"][0];
  EXPECT_EQ(static_cast<std::string>(item["name"]), "a\nb");
  EXPECT_EQ(static_cast<int>(item["starts"]), 2);
  EXPECT_FALSE(static_cast<bool>(item["starts_derived"]));
  EXPECT_EQ(static_cast<int>(item["ends"]), 1);
  EXPECT_EQ(static_cast<int>(item["per_minute_now"]), 1);
  EXPECT_EQ(static_cast<int>(item["per_minute_worst"]), 1);
  EXPECT_EQ(static_cast<int>(item["longest_life_ms"]), 2000);
  EXPECT_EQ(static_cast<int>(item["uptime_ms"]), 1000);
  EXPECT_EQ(static_cast<int>(item["failed_forks"]), 0);
  EXPECT_EQ(static_cast<int>(item["chained_starts"]), 0);
  EXPECT_EQ(static_cast<std::string>(item["state"]), "running");
  EXPECT_FALSE(static_cast<bool>(item["state_derived"]));
  JsonObject end = item["last_end"];
  EXPECT_EQ(static_cast<std::string>(end["time"]), "2026-11-21T06:20:33Z");
  EXPECT_EQ(static_cast<int>(end["status"]), 139);
  EXPECT_EQ(static_cast<std::string>(end["text"]), "SIGSEGV core");
  EXPECT_EQ(static_cast<std::string>(end["signal"]), "SIGSEGV");
  EXPECT_TRUE(static_cast<bool>(end["core"]));
  EXPECT_FALSE(end.HasObject("code"));
  JsonObject cause = item["causes"][0];
  EXPECT_EQ(static_cast<int>(cause["status"]), 139);
  EXPECT_EQ(static_cast<int>(cause["count"]), 1);
}

TEST(LogReport, PutsEventsIntoWords) {
  LogEvent event;
  event.time = kBegin;
  event.name = "a b";
  event.process = 10;
  event.child = 99;
  event.status = 768;
  event.lost = 17;
  event.error = ENOSPC;
  const std::string time = "2026-11-21T06:20:31Z ";
  const std::map<LogEventKind, std::string> lines{
      {LogEventKind::kStart, time + "a b starts\n"},
      {LogEventKind::kEnd, time + "a b (process 99) ended: exit 3\n"},
      {LogEventKind::kForkFailed,
       time + "a b could not be forked and is given up\n"},
      {LogEventKind::kNoProgram, time + "a b has an empty program path\n"},
      {LogEventKind::kNameless, time + "an item has no name and is skipped\n"},
      {LogEventKind::kParseFailed,
       time + "the items file could not be parsed\n"},
      {LogEventKind::kLost,
       time + "lost lines: 17 (No space left on device)\n"},
      {LogEventKind::kCut, time + "a message was cut\n"},
      {LogEventKind::kOther, ""}};
  for (const auto& [kind, line] : lines) {
    event.kind = kind;
    EXPECT_EQ(EventLine(event), line);
  }
  event.kind = LogEventKind::kStart;
  event.thread = event.process;
  EXPECT_EQ(EventLine(event), time + "a b cannot be executed; tried again\n");
}

}  // namespace
