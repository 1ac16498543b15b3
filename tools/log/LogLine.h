// Parses the lines of a log by the formats that the launcher writes them with.
//
// An item's name may look like any part of a message, so a message is matched
// from its end, where the launcher's own words are.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/text/Times.h"

// The causes of an end, from harmless to grave.
enum class EndCause { kSuccess, kFailure, kKilled, kSignal, kCore };

// A wait status, as the launcher logs it, decoded.
struct WaitStatus {
  explicit WaitStatus(int word);

  EndCause Cause() const;

  // "exit 3", "SIGKILL", "SIGSEGV core"
  std::string Text() const;

  int code;    // of an exit
  int signal;  // 0 after an exit
  bool core;   // whether the system wrote a core file
};

// "SIGKILL"; "signal 99" for a number without a name here.
std::string SignalName(int signal);

enum class LogEventKind {
  kStart,
  kEnd,
  kForkFailed,
  kNoProgram,
  kNameless,
  kParseFailed,
  kLost,
  kCut,    // the logger cut the message, or could not format it
  kOther,  // a message that none of the launcher's formats gives
};

struct LogEvent {
  Micros time = 0;
  std::int64_t process = 0;
  std::int64_t thread = 0;
  LogEventKind kind = LogEventKind::kOther;
  std::string_view name;   // as written in the log, escaped
  std::int64_t child = 0;  // of an end
  int status = 0;          // of an end: the wait status, not decoded
  std::uint64_t lost = 0;  // lines
  int error = 0;           // the errno value of the last line lost
  // Beginnings of lines that precede the event on its line: a killed writer
  // left them without a line feed.
  std::size_t fragments = 0;

  bool IsAboutItem() const { return kind <= LogEventKind::kNoProgram; }
  // Whether a forked child of a launcher logged it: its only thread has the
  // process's own number, which a supervision thread never has.
  bool IsFromForkedChild() const { return process == thread; }
};

// Parses `line`, which has no line feed; the result points into it. nullopt if
// it does not have the layout of a log line.
std::optional<LogEvent> ParseLine(std::string_view line);

// The text that the logger escaped.
std::string Unescaped(std::string_view text);
