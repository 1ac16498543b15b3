#include <gtest/gtest.h>

#include <climits>
#include <cwchar>
#include <string>

#include "logger/LogLine.h"
#include "tests/support/LogReader.h"

namespace {

using std::chrono::microseconds;
using std::chrono::sys_days;
using std::chrono::year;

const LogTime kTime = sys_days(year(2026) / 11 / 21) + std::chrono::hours(6) +
                      std::chrono::minutes(20) + std::chrono::seconds(31) +
                      microseconds(123456);

constexpr std::string_view kPrefix =
    "2026-11-21T06:20:31.123456Z ERROR 4711:4713 ";

[[gnu::format(printf, 4, 5)]] std::string LineOf(LogTime time, LOGLEVEL level,
                                                 CallerIds ids,
                                                 const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const LogLine line(time, level, ids, format, arguments);
  va_end(arguments);
  return std::string(line.text());
}

template <typename... Arguments>
std::string Formatted(const char* format, Arguments... arguments) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  const std::string line =
      LineOf(kTime, LOGLEVEL_ERROR, {4711, 4713}, format, arguments...);
#pragma GCC diagnostic pop
  EXPECT_EQ(line.substr(0, kPrefix.size()), kPrefix);
  EXPECT_EQ(line.find('\n'), line.size() - 1) << "one message is one line";
  return line.substr(kPrefix.size(), line.size() - kPrefix.size() - 1);
}

TEST(LogLine, IsLaidOutAsDocumented) {
  EXPECT_EQ(LineOf(kTime, LOGLEVEL_ERROR, {4711, 4713}, "[LAUNCHER  ] %s %d",
                   "alpha", 7),
            "2026-11-21T06:20:31.123456Z ERROR 4711:4713 "
            "[LAUNCHER  ] alpha 7\n");
}

TEST(LogLine, PadsTheTimeWithZeros) {
  const LogTime time = sys_days(year(2027) / 1 / 2) + std::chrono::hours(3) +
                       std::chrono::minutes(4) + std::chrono::seconds(5) +
                       microseconds(6);
  EXPECT_EQ(LineOf(time, LOGLEVEL_DEBUG, {1, 2}, "m"),
            "2027-01-02T03:04:05.000006Z DEBUG 1:2 m\n");
}

TEST(LogLine, FollowsTheCalendar) {
  const auto date = [](std::chrono::seconds since_1970) {
    const LogTime time(since_1970);
    return LineOf(time, LOGLEVEL_ERROR, {1, 1}, "m").substr(0, 27);
  };
  EXPECT_EQ(date(std::chrono::seconds(0)), "1970-01-01T00:00:00.000000Z");
  EXPECT_EQ(date(std::chrono::seconds(-1)), "1969-12-31T23:59:59.000000Z");
  EXPECT_EQ(date(std::chrono::seconds(951782399)),
            "2000-02-28T23:59:59.000000Z");
  EXPECT_EQ(date(std::chrono::seconds(951782400)),
            "2000-02-29T00:00:00.000000Z");
  EXPECT_EQ(date(std::chrono::seconds(4107542400)),
            "2100-03-01T00:00:00.000000Z");
}

TEST(LogLine, CutsTheTimeToMicroseconds) {
  // With some standard libraries the clock itself counts microseconds.
  const auto time = std::chrono::time_point_cast<LogTime::duration>(
      kTime + std::chrono::nanoseconds(999));
  EXPECT_EQ(LineOf(time, LOGLEVEL_ERROR, {4711, 4713}, "m"),
            std::string(kPrefix) + "m\n");
}

TEST(LogLine, HoldsTheLargestIds) {
  const CallerIds ids{INT_MAX, UINT64_MAX};
  EXPECT_EQ(LineOf(kTime, LOGLEVEL_CRITICAL, ids, "m").substr(27),
            " CRITICAL 2147483647:18446744073709551615 m\n");
}

TEST(LogLine, FormatsAsPrintfDoes) {
  EXPECT_EQ(Formatted("%s|%5d|%-4x|%lld|%zu|%c|%.2f|%%|%*d", "a", -12, 255,
                      LLONG_MIN, sizeof(int), 'z', 0.125, 4, 7),
            "a|  -12|ff  |-9223372036854775808|4|z|0.12|%|   7");
}

TEST(LogLine, WritesANullFormatAsAText) {
  const char* const none = nullptr;
  EXPECT_EQ(Formatted(none), "(null)");
}

TEST(LogLine, IsOneLineWithAnEmptyMessage) {
  EXPECT_EQ(Formatted("%s", ""), "");
}

TEST(LogLine, EscapesTheMessage) {
  EXPECT_EQ(Formatted("%s", "a\n2026-01-01T00:00:00.000000Z ERROR 1:1 b"),
            "a\\n2026-01-01T00:00:00.000000Z ERROR 1:1 b");
  EXPECT_EQ(Formatted("a%cb", '\0'), "a\\x00b");
  EXPECT_EQ(Formatted("%s", "\\n"), "\\\\n");
}

// Every length around those where a line leaves its buffer.
TEST(LogLine, HoldsMessagesOfEveryLengthWhole) {
  for (int length = 3900; length < 4200; ++length) {
    const std::string text(static_cast<std::size_t>(length), 'x');
    ASSERT_EQ(Formatted("%s", text.c_str()), text) << length;
    const std::string feeds(static_cast<std::size_t>(length), '\n');
    ASSERT_EQ(Formatted("%s", feeds.c_str()).size(), 2 * feeds.size());
  }
}

TEST(LogLine, HoldsTheLongestMessageWhole) {
  const std::string text(kMaxMessageBytes, 'x');
  EXPECT_EQ(Formatted("%s", text.c_str()), text);
}

TEST(LogLine, CutsALongerMessageAndMarksTheCut) {
  const std::string text(kMaxMessageBytes, 'x');
  EXPECT_EQ(Formatted("%s", (text + "y").c_str()),
            text + std::string(kCutMark));
  EXPECT_EQ(Formatted("%s", (text + text).c_str()),
            text + std::string(kCutMark));
}

TEST(LogLine, EscapesALongMessage) {
  const std::string text(kMaxMessageBytes, '\x1b');
  const std::string message = Formatted("%s", text.c_str());
  ASSERT_EQ(message.size(), 4 * text.size());
  for (std::size_t i = 0; i < message.size(); i += 4) {
    ASSERT_EQ(message.compare(i, 4, "\\x1b"), 0) << i;
  }
}

TEST(LogLine, WritesTheFormatItselfWhenFormattingFails) {
  const std::array<wchar_t, 2> bad{static_cast<wchar_t>(0x7FFFFFFF), L'\0'};
  EXPECT_EQ(Formatted("bad\n%ls", bad.data()),
            "bad\\n%ls" + std::string(kUnformattableMark));
}

TEST(Severity, GrowsFromVerboseToCritical) {
  EXPECT_LT(Severity(LOGLEVEL_VERBOSE), Severity(LOGLEVEL_DEBUG));
  EXPECT_LT(Severity(LOGLEVEL_DEBUG), Severity(LOGLEVEL_MESSAGE));
  EXPECT_LT(Severity(LOGLEVEL_MESSAGE), Severity(LOGLEVEL_WARNING));
  EXPECT_LT(Severity(LOGLEVEL_WARNING), Severity(LOGLEVEL_ERROR));
  EXPECT_LT(Severity(LOGLEVEL_ERROR), Severity(LOGLEVEL_CRITICAL));
}

TEST(Severity, OfAnUnknownLevelIsThatOfAnError) {
  for (const int value : {-1, 0, 3, 5, 15, 18, 32}) {
    const auto level = static_cast<LOGLEVEL>(value);
    EXPECT_EQ(Severity(level), Severity(LOGLEVEL_ERROR)) << value;
    EXPECT_EQ(WordsOf(LineOf(kTime, level, {1, 1}, "m")).level, "ERROR");
  }
}

TEST(LogLine, ShowsEachLevelByItsText) {
  for (const LevelFormat& level : kLevelsBySeverity) {
    const std::string line = LineOf(kTime, level.level, {1, 1}, "m");
    EXPECT_EQ(WordsOf(line).level, level.text);
  }
}

}  // namespace
