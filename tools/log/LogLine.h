// The lines of a log, as the logger library lays them out:
//
//   2026-11-21T06:20:31.123456Z ERROR 4711:4713 [LAUNCHER  ] the message
//
// An item's name may look like any part of a message. So a message is taken
// apart from its end, where the launcher's own words stand last.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Microseconds since 1970, UTC.
using LogMicros = std::int64_t;

constexpr LogMicros kMicrosPerSecond = 1'000'000;

enum class LogEventKind {
  kStart,       // "Start to fork <name>"; logged at level DEBUG
  kEnd,         // "<name> <child> is killed. ret = <ret>, status = <status>"
  kForkFailed,  // "Failed to fork <name>": the item's supervision is over
  kNoProgram,   // "program path of <name> is empty"
  kNameless,    // "There is an item has no name."
  kUnparsable,  // "Error while parsing saved json string."
  kLost,        // the library's own: so many lines could not be written
  kOther,
};

struct LogEvent {
  LogMicros time = 0;
  std::int64_t process = 0;
  std::int64_t thread = 0;
  LogEventKind kind = LogEventKind::kOther;
  std::string_view name;   // as it stands in the log, escaped
  std::int64_t child = 0;  // of an end
  int status = 0;          // of an end: the wait status, not decoded
  std::uint64_t lost = 0;
};

class LogLineParser {
 public:
  // Takes `line`, without its line feed, apart; the result points into it.
  // Nothing when the line is not laid out like a log's.
  std::optional<LogEvent> Parse(std::string_view line);

 private:
  bool ParseTime(std::string_view text, LogMicros* time);

  // Consecutive lines mostly have the day in common.
  std::string day_;
  LogMicros day_start_ = 0;
};

// The text that the logger library has escaped.
std::string Unescaped(std::string_view text);
