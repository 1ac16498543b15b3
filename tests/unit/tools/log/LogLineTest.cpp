#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <cerrno>
#include <map>

#include "common/util/StringHelpers.h"
#include "launcher/Messages.h"
#include "logger/Format.h"
#include "tools/log/LogLine.h"

namespace {

constexpr const char* kTime = "2026-11-21T06:20:31.123456Z";

std::optional<LogEvent> Parse(const std::string& line) {
  static std::string kept;  // The result points into the line.
  kept = line;
  return ParseLine(kept);
}

LogEvent Event(const std::string& level, const std::string& message) {
  const auto event = Parse(kTime + (" " + level) + " 4711:4713 " + message);
  EXPECT_TRUE(event) << message;
  return event.value_or(LogEvent{});
}

TEST(LogLine, ReadsTimeProcessAndThread) {
  const LogEvent event = Event("ERROR", "anything");
  EXPECT_EQ(event.time, 1795242031123456);
  EXPECT_EQ(event.process, 4711);
  EXPECT_EQ(event.thread, 4713);
  EXPECT_EQ(event.kind, LogEventKind::kOther);
}

TEST(LogLine, ReadsAStart) {
  const LogEvent event =
      Event("DEBUG", "[LAUNCHER  ] Start to fork web server");
  EXPECT_EQ(event.kind, LogEventKind::kStart);
  EXPECT_EQ(event.name, "web server");
}

TEST(LogLine, ReadsAnEnd) {
  const LogEvent event = Event(
      "ERROR", "[LAUNCHER  ] web server 99 is killed. ret = 99, status = 768");
  EXPECT_EQ(event.kind, LogEventKind::kEnd);
  EXPECT_EQ(event.name, "web server");
  EXPECT_EQ(event.child, 99);
  EXPECT_EQ(event.status, 768);
}

TEST(LogLine, ReadsAnEndThatCouldNotBeWaitedFor) {
  const LogEvent event =
      Event("ERROR", "[LAUNCHER  ] a 99 is killed. ret = -1, status = 0");
  EXPECT_EQ(event.kind, LogEventKind::kEnd);
}

TEST(LogLine, ReadsNamesThatLookLikeMessages) {
  const std::string name = "x 1 is killed. ret = 1, status = 0";
  const LogEvent end = Event(
      "ERROR", "[LAUNCHER  ] " + name + " 2 is killed. ret = 2, status = 9");
  EXPECT_EQ(end.kind, LogEventKind::kEnd);
  EXPECT_EQ(end.name, name);
  EXPECT_EQ(end.status, 9);
  const LogEvent start = Event("DEBUG", "[LAUNCHER  ] Start to fork " + name);
  EXPECT_EQ(start.kind, LogEventKind::kStart);
  EXPECT_EQ(start.name, name);
  const LogEvent like_start = Event(
      "ERROR", "[LAUNCHER  ] Start to fork x 2 is killed. ret = 2, status = 9");
  EXPECT_EQ(like_start.kind, LogEventKind::kEnd);
  EXPECT_EQ(like_start.name, "Start to fork x");
  EXPECT_EQ(
      Event("ERROR", "[LAUNCHER  ] program path of a is empty is empty").name,
      "a is empty");
}

TEST(LogLine, ReadsEmptyNames) {
  EXPECT_EQ(Event("DEBUG", "[LAUNCHER  ] Start to fork ").kind,
            LogEventKind::kStart);
  const LogEvent end =
      Event("ERROR", "[LAUNCHER  ]  2 is killed. ret = 2, status = 9");
  EXPECT_EQ(end.kind, LogEventKind::kEnd);
  EXPECT_EQ(end.name, "");
  const LogEvent empty =
      Event("ERROR", "[LAUNCHER  ] program path of  is empty");
  EXPECT_EQ(empty.kind, LogEventKind::kNoProgram);
  EXPECT_EQ(empty.name, "");
}

TEST(LogLine, ReadsTheOtherMessages) {
  const auto kind = [](const std::string& message) {
    return Event("ERROR", "[LAUNCHER  ] " + message).kind;
  };
  EXPECT_EQ(kind("Failed to fork a"), LogEventKind::kForkFailed);
  EXPECT_EQ(kind("program path of a is empty"), LogEventKind::kNoProgram);
  EXPECT_EQ(kind("There is an item has no name."), LogEventKind::kNameless);
  EXPECT_EQ(kind("Error while parsing saved json string."),
            LogEventKind::kParseFailed);
  EXPECT_EQ(kind("something else"), LogEventKind::kOther);
  EXPECT_EQ(kind("a b is killed. ret = 2, status = 9"), LogEventKind::kOther);
  EXPECT_EQ(kind("a 2 is killed. ret = 2, status = 9x"), LogEventKind::kOther);
}

TEST(LogLine, ReadsTheNumberOfLostLines) {
  const LogEvent event =
      Event("CRITICAL", string_format(kLostLinesMessage, 12ULL, ENOSPC));
  EXPECT_EQ(event.kind, LogEventKind::kLost);
  EXPECT_EQ(event.lost, 12U);
  EXPECT_EQ(event.error, ENOSPC);
}

TEST(LogLine, ReadsEachMessageAtItsLevelOnly) {
  const std::string start = string_format(kStartMessage, "a");
  const std::string fork_failed = string_format(kForkFailedMessage, "a");
  EXPECT_EQ(Event("ERROR", start).kind, LogEventKind::kOther);
  EXPECT_EQ(Event("DEBUG", fork_failed).kind, LogEventKind::kOther);
  EXPECT_EQ(Event("ERROR", string_format(kLostLinesMessage, 1ULL, 2)).kind,
            LogEventKind::kOther);
}

TEST(LogLine, KnowsEveryLevel) {
  for (const LevelFormat& level : kLevelsBySeverity) {
    EXPECT_TRUE(Parse(kTime + (" " + std::string(level.text)) + " 1:2 x"));
  }
  EXPECT_FALSE(Parse(std::string(kTime) + " TRACE 1:2 x"));
}

TEST(LogLine, RecognisesAMessageThatTheLoggerCut) {
  const std::string start = string_format(kStartMessage, "a");
  EXPECT_EQ(Event("DEBUG", start + std::string(kCutMark)).kind,
            LogEventKind::kCut);
  EXPECT_EQ(Event("DEBUG", start + std::string(kUnformattableMark)).kind,
            LogEventKind::kCut);
  // After an escaped backslash.
  EXPECT_EQ(Event("DEBUG", start + R"(\\\...)").kind, LogEventKind::kCut);
}

TEST(LogLine, DoesNotMistakeAnEscapedBackslashForACut) {
  const std::string start = string_format(kStartMessage, "a");
  for (const char* const end : {R"(\\...)", R"(\\?)", R"(\\\\...)"}) {
    EXPECT_EQ(Event("DEBUG", start + end).kind, LogEventKind::kStart) << end;
  }
}

TEST(LogLine, DropsAFragmentInFrontOfALine) {
  const std::string message = string_format(kEndMessage, "web", 99, 99, 768);
  const std::string whole = "2026-11-21T06:20:31.200000Z ERROR 1:2 " + message;
  const std::string before = "2026-11-21T06:20:31.100000Z ERROR 1:2 " + message;
  for (std::size_t length = 1; length <= before.size(); ++length) {
    const auto event = Parse(before.substr(0, length) + whole);
    ASSERT_TRUE(event) << length;
    EXPECT_EQ(event->kind, LogEventKind::kEnd) << length;
    EXPECT_EQ(event->name, "web") << length;
    EXPECT_EQ(event->child, 99) << length;
    EXPECT_EQ(event->fragments, 1U) << length;
  }
  const auto second = Parse("2026-" + before.substr(0, 50) + whole);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->fragments, 2U);
  EXPECT_EQ(second->name, "web");
}

TEST(LogLine, ReadsANameThatLooksLikeALine) {
  const std::string name = "a\\n2026-11-21T06:20:30.000000Z ERROR 1:2 " +
                           string_format(kEndMessage, "b", 7, 7, 0);
  const LogEvent event =
      Event("ERROR", string_format(kEndMessage, name.c_str(), 99, 99, 256));
  EXPECT_EQ(event.name, name);
  EXPECT_EQ(event.child, 99);
  EXPECT_EQ(event.fragments, 0U);
}

TEST(LogLine, RefusesNumbersThatAreTooLarge) {
  EXPECT_EQ(Event("ERROR",
                  "[LAUNCHER  ] a 99999999999999999999 is killed. "
                  "ret = 1, status = 0")
                .kind,
            LogEventKind::kOther);
}

TEST(LogLine, KnowsTheLinesOfAForkedChild) {
  EXPECT_TRUE(Parse(std::string(kTime) + " DEBUG 7:7 x")->IsFromForkedChild());
  EXPECT_FALSE(Parse(std::string(kTime) + " DEBUG 7:8 x")->IsFromForkedChild());
}

TEST(LogLine, RefusesOtherText) {
  for (const std::string line :
       {"", "hello", "2026-11-21T06:20:31.123456Z", "2026-11-21T06:20:31Z x",
        "2026-13-21T06:20:31.123456Z ERROR 1:1 x",
        "2026-11-21T06:20:31.123456Z ERROR 1 x",
        "2026-11-21T06:20:31.123456Z ERROR x:1 x",
        "2026-11-21 06:20:31.123456Z ERROR 1:1 x",
        "2026-11-21T06:20:31.123456Z ERROR 1:1",
        "2026-11-21T06:20:31.123456Z ERROR 1:y x",
        "2026-11-21T06:20:31.123456Z  ERROR 1:1 x"}) {
    EXPECT_FALSE(Parse(line)) << line;
  }
}

TEST(LogLine, RefusesEveryBeginningOfALine) {
  const std::string line = std::string(kTime) +
                           " ERROR 1:2 [LAUNCHER  ] a 3 is "
                           "killed. ret = 3, status = 9";
  for (std::size_t length = 0; length < line.size(); ++length) {
    const auto event = Parse(line.substr(0, length));
    EXPECT_TRUE(!event || event->kind != LogEventKind::kEnd) << length;
  }
}

TEST(LogLine, ReadsEscapedText) {
  EXPECT_EQ(Unescaped("a\\nb"), "a\nb");
  EXPECT_EQ(Unescaped("\\x1b[31m"), "\x1b[31m");
  EXPECT_EQ(Unescaped("C:\\\\new"), "C:\\new");
  EXPECT_EQ(Unescaped("\\x1\\q\\"), "\\x1\\q\\");
}

TEST(WaitStatus, DecodesEveryExitCode) {
  for (int code = 0; code < 256; ++code) {
    const WaitStatus status(code << 8);
    EXPECT_EQ(status.Text(), "exit " + std::to_string(code));
    EXPECT_EQ(status.Cause(),
              code == 0 ? EndCause::kSuccess : EndCause::kFailure);
  }
}

TEST(WaitStatus, AgreesWithTheSystem) {
  for (int word = 0; word < 65536; ++word) {
    const WaitStatus status(word);
    if (WIFEXITED(word)) {
      EXPECT_EQ(status.code, WEXITSTATUS(word));
      EXPECT_EQ(status.signal, 0);
    } else if (WIFSIGNALED(word)) {
      EXPECT_EQ(status.signal, WTERMSIG(word));
      EXPECT_EQ(status.core, WCOREDUMP(word) != 0);
    }
  }
}

TEST(WaitStatus, NamesSignals) {
  EXPECT_EQ(WaitStatus(SIGKILL).Text(), "SIGKILL");
  EXPECT_EQ(WaitStatus(SIGKILL).Cause(), EndCause::kKilled);
  EXPECT_EQ(WaitStatus(SIGTERM).Text(), "SIGTERM");
  EXPECT_EQ(WaitStatus(SIGTERM).Cause(), EndCause::kSignal);
  EXPECT_EQ(WaitStatus(SIGSEGV | 128).Text(), "SIGSEGV core");
  EXPECT_EQ(WaitStatus(SIGSEGV | 128).Cause(), EndCause::kCore);
}

TEST(WaitStatus, NamesEverySignal) {
  const std::map<int, std::string> names{
      {SIGHUP, "SIGHUP"},   {SIGINT, "SIGINT"},       {SIGQUIT, "SIGQUIT"},
      {SIGILL, "SIGILL"},   {SIGTRAP, "SIGTRAP"},     {SIGABRT, "SIGABRT"},
      {SIGBUS, "SIGBUS"},   {SIGFPE, "SIGFPE"},       {SIGKILL, "SIGKILL"},
      {SIGUSR1, "SIGUSR1"}, {SIGSEGV, "SIGSEGV"},     {SIGUSR2, "SIGUSR2"},
      {SIGPIPE, "SIGPIPE"}, {SIGALRM, "SIGALRM"},     {SIGTERM, "SIGTERM"},
      {SIGXCPU, "SIGXCPU"}, {SIGVTALRM, "SIGVTALRM"}, {SIGXFSZ, "SIGXFSZ"},
      {SIGPROF, "SIGPROF"}, {SIGIO, "SIGIO"},         {SIGSYS, "SIGSYS"}};
  for (int number = 1; number < 0x7F; ++number) {
    const auto name = names.find(number);
    EXPECT_EQ(SignalName(number), name == names.end()
                                      ? "signal " + std::to_string(number)
                                      : name->second);
  }
}

}  // namespace
