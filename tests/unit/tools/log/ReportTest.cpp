#include <gtest/gtest.h>

#include <sstream>

#include "common/json/JsonObject.h"
#include "tools/text/Characters.h"
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

TEST(LogReport, TellsOfAStop) {
  History history;
  Add(&history, 0, LogEventKind::kStart, "sleeper");
  Add(&history, 5 * kSecond, LogEventKind::kEnd, "sleeper", 9);
  const std::string text = TableReport({}, history, kBegin + 7 * kSecond);
  EXPECT_NE(text.find("  silent\n"), std::string::npos) << text;
  EXPECT_NE(text.find("silent (launcher stopped or killed): sleeper\n"),
            std::string::npos)
      << text;
}

TEST(LogReport, ExplainsEachTilde) {
  History history;
  Add(&history, 0, LogEventKind::kEnd, "a", 9);
  const auto text = [&](LogMicros now) {
    return TableReport({}, history, kBegin + now);
  };
  EXPECT_NE(text(0).find("  running~\n"), std::string::npos) << text(0);
  EXPECT_NE(text(5 * kSecond).find("  silent~\n"), std::string::npos);
  Add(&history, 6 * kSecond, LogEventKind::kStart, "a");
  EXPECT_NE(text(6 * kSecond).find("  running\n"), std::string::npos);
  EXPECT_EQ(text(6 * kSecond).find('~'), std::string::npos);
  LogEvent end;
  end.kind = LogEventKind::kEnd;
  end.time = kBegin + 7 * kSecond;
  end.name = "a";
  end.process = 20;
  end.thread = 21;
  history.Add(end);
  EXPECT_NE(text(7 * kSecond).find("  running~\n"), std::string::npos);
  EXPECT_NE(text(7 * kSecond).find("\n~ derived"), std::string::npos);
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
  std::istringstream lines(TableReport({}, history, kBegin));
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LE(DisplayWidth(line), 80U) << line;
  }
  const LogMicros later = kBegin + std::int64_t{1'000'000} * kSecond;
  std::istringstream notes(TableReport({}, history, later));
  for (std::string line; std::getline(notes, line);) {
    EXPECT_LE(DisplayWidth(line), 80U) << line;
  }
}

TEST(LogReport, NamesAsManyItemsAsFitALine) {
  History history;
  for (int i = 0; i < 20; ++i) {
    Add(&history, 0, LogEventKind::kForkFailed, "item " + std::to_string(i));
  }
  EXPECT_NE(TableReport({}, history, kBegin)
                .find("no fork (given up for good): item 0, item 1, item 2, "
                      "item 3, item 4 and 15 more\n"),
            std::string::npos);
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
       {"looping: looper\n", "stopped or killed): gone\n",
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
  EXPECT_EQ(static_cast<std::string>(item["state"]), "pausing");
  EXPECT_FALSE(static_cast<bool>(item["state_derived"]));
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
