#include <gtest/gtest.h>

#include <sstream>

#include "common/json/JsonObject.h"
#include "tools/common/Characters.h"
#include "tools/log/Report.h"

namespace {

constexpr LogMicros kSecond = kMicrosPerSecond;
constexpr LogMicros kBegin = 1795242031 * kSecond;  // 2026-11-21T06:20:31Z

void Add(History* history, LogMicros time, LogEventKind kind,
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

std::string Example() {
  History history;
  Add(&history, 0, LogEventKind::kStart, "backup");
  Add(&history, 7 * kSecond, LogEventKind::kEnd, "backup", 139);
  Add(&history, 8 * kSecond, LogEventKind::kStart, "backup");
  Add(&history, 8 * kSecond, LogEventKind::kEnd, "数\\n", 768);
  return TableReport({"/l/launcher.1.log", "/l/launcher.log"}, history,
                     kBegin + 20 * kSecond);
}

TEST(LogReport, IsATable) {
  EXPECT_EQ(
      Example(),
      "/l/launcher.log and 1 older\n"
      "2026-11-21T06:20:31Z to 2026-11-21T06:20:39Z, 4 lines\n"
      "launchers seen: 1, the last one process 10, until "
      "2026-11-21T06:20:39Z\n"
      "\n"
      "ITEM             STARTS  ENDS  LAST END       AGO  /MIN WORST "
      "LONGEST  STATE\n"
      "backup                2     1  SIGSEGV core   13s     1     1    "
      "7.0s  running\n"
      "数\\n                 1~     1  exit 3         12s     1     1     "
      "  -  running~\n"
      "\n"
      "~ derived from the ends: starts are logged at level DEBUG only\n");
}

TEST(LogReport, FitsEightyColumns) {
  History history;
  const std::string name(100, 'x');
  for (int i = 0; i < 200'000; ++i) {
    Add(&history, std::int64_t{i} * 50'000, LogEventKind::kEnd, name, 26 | 128);
  }
  std::istringstream lines(TableReport({}, history, kBegin));
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LE(DisplayWidth(line), line.find(':') == line.npos ? 80U : 130U)
        << line;
  }
}

TEST(LogReport, TellsWhatOneShouldKnow) {
  History history;
  for (int i = 0; i < 10; ++i) {
    Add(&history, i * kSecond, LogEventKind::kEnd, "looper", 256);
  }
  Add(&history, 0, LogEventKind::kEnd, "gone", 9);
  Add(&history, 0, LogEventKind::kForkFailed, "forkless");
  Add(&history, 0, LogEventKind::kNoProgram, "pathless");
  Add(&history, 0, LogEventKind::kNameless, "");
  Add(&history, 0, LogEventKind::kUnparsable, "");
  LogEvent lost;
  lost.kind = LogEventKind::kLost;
  lost.time = kBegin;
  lost.lost = 12;
  history.Add(lost);
  history.AddUnreadable();
  const std::string text = TableReport({}, history, kBegin + 20 * kSecond);
  for (const char* const part :
       {"looping: looper\n", "not seen to start again): gone\n",
        "for good): forkless\n", "\"program\"): pathless\n",
        "items without a name: 1\n", "could not be parsed: 1\n",
        "lines lost: 12\n", "no log's: 1\n"}) {
    EXPECT_NE(text.find(part), std::string::npos) << part << text;
  }
}

TEST(LogReport, NeverActsOnATerminal) {
  History history;
  Add(&history, 0, LogEventKind::kEnd, "\x1b[31m", 0);
  EXPECT_EQ(TableReport({"\x1b"}, history, kBegin).find('\x1b'),
            std::string::npos);
  LogEvent event;
  event.kind = LogEventKind::kStart;
  event.name = "\x1b";
  EXPECT_EQ(EventLine(event).find('\x1b'), std::string::npos);
}

TEST(LogReport, IsAJsonDocument) {
  History history;
  Add(&history, 0, LogEventKind::kStart, "a\\nb");
  Add(&history, 2 * kSecond, LogEventKind::kEnd, "a\\nb", 139);
  JsonObject report(
      JsonReport({"x.log"}, history, kBegin + 3 * kSecond).c_str());
  EXPECT_EQ(static_cast<std::string>(report["files"][0]), "x.log");
  EXPECT_EQ(static_cast<int>(report["lines"]), 2);
  EXPECT_EQ(static_cast<std::string>(report["first"]), "2026-11-21T06:20:31Z");
  JsonObject item = report["items"][0];
  EXPECT_EQ(static_cast<std::string>(item["name"]), "a\nb");
  EXPECT_EQ(static_cast<int>(item["starts"]), 1);
  EXPECT_FALSE(static_cast<bool>(item["starts_derived"]));
  EXPECT_EQ(static_cast<int>(item["ends"]), 1);
  EXPECT_EQ(static_cast<int>(item["longest_life_ms"]), 2000);
  EXPECT_EQ(static_cast<std::string>(item["state"]), "running");
  JsonObject end = item["last_end"];
  EXPECT_EQ(static_cast<int>(end["status"]), 139);
  EXPECT_EQ(static_cast<std::string>(end["signal"]), "SIGSEGV");
  EXPECT_TRUE(static_cast<bool>(end["core"]));
  EXPECT_EQ(static_cast<int>(report["launchers"][0]["process"]), 10);
}

TEST(LogReport, PutsEventsIntoWords) {
  LogEvent event;
  event.time = kBegin;
  event.kind = LogEventKind::kEnd;
  event.name = "a b";
  event.child = 99;
  event.status = 768;
  EXPECT_EQ(EventLine(event),
            "2026-11-21T06:20:31Z a b (process 99) ended: exit 3\n");
  event.kind = LogEventKind::kStart;
  EXPECT_EQ(EventLine(event), "2026-11-21T06:20:31Z a b starts\n");
  event.kind = LogEventKind::kOther;
  EXPECT_EQ(EventLine(event), "");
}

}  // namespace
