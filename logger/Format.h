// The format of a log: the layout of a line, the levels' texts, the escapes,
// the names of the files, and the library's own message. The library,
// launcher-log and the tests share these definitions.
//
//   2026-11-21T06:20:31.123456Z ERROR 4711:4713 [LAUNCHER  ] the message
//
// A line has four fields, separated by single blanks: the time (UTC), the
// level's text, the process id and the thread id with a colon between them, and
// the message. It ends with a line feed.
//
// A backslash in a line always begins an escape:
//
//   \n    a line feed
//   \\    a backslash
//   \xNN  any other byte, as two lower-case hexadecimal digits
//   \...  the message was cut here; ends the line
//   \?    formatting failed, and the text before it is the printf format; ends
//         the line

#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "environment/LoggerLibrary.h"

// In kTimeShape, kTimeDigit is the place of a digit; other characters are
// literal.
inline constexpr std::string_view kTimeShape = "dddd-dd-ddTdd:dd:dd.ddddddZ";
inline constexpr char kTimeDigit = 'd';

// The levels from the least to the most severe.
struct LevelFormat {
  LOGLEVEL level;
  std::string_view text;
};
inline constexpr std::array<LevelFormat, 6> kLevelsBySeverity{{
    {LOGLEVEL_VERBOSE, "VERBOSE"},
    {LOGLEVEL_DEBUG, "DEBUG"},
    {LOGLEVEL_MESSAGE, "MESSAGE"},
    {LOGLEVEL_WARNING, "WARNING"},
    {LOGLEVEL_ERROR, "ERROR"},
    {LOGLEVEL_CRITICAL, "CRITICAL"},
}};

inline constexpr char kEscape = '\\';
inline constexpr char kEscapedLineFeed = 'n';
inline constexpr char kEscapedByte = 'x';
inline constexpr std::string_view kHexDigits = "0123456789abcdef";
inline constexpr std::string_view kCutMark = "\\...";
inline constexpr std::string_view kUnformattableMark = "\\?";

// Logged at LOGLEVEL_CRITICAL, whatever the threshold. Arguments: the number of
// lost lines (unsigned long long), and the errno value of the last one.
inline constexpr char kLostLinesMessage[] =
    "[LOGGER    ] lines that could not be written: %llu, errno = %d";

// A log's files: `<name>.log`; its full predecessors `<name>.1.log` (the
// latest), `<name>.2.log` and so on; and full files that have no number yet,
// `<name>.<time>-<thread>.full`.
inline constexpr std::string_view kLogSuffix = ".log";
inline constexpr std::string_view kAsideSuffix = ".full";

inline std::string LogFileName(std::string_view name) {
  return std::string(name).append(kLogSuffix);
}

inline std::string OldLogFileName(std::string_view name, int number) {
  return std::string(name)
      .append(1, '.')
      .append(std::to_string(number))
      .append(kLogSuffix);
}
