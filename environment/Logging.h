// The logging call, and events for the system log.

#pragma once

#include <cstdarg>
#include <string>

#include "environment/LoggerLibrary.h"

// Where all messages go. Null until `InitLog` has succeeded, then unchanged
// until the process ends; while it is null, nothing is logged. Written once, on
// the main thread, before any supervision thread exists.
extern ILog* logger;

// Hands `level`, the printf-style `format` and the arguments that follow it to
// `log`; does nothing while `log` is null. Nothing is formatted, cut or
// filtered here. `format` begins with the speaker's tag, ten characters in
// square brackets, and one blank:
//
//   __LOG__A(logger, LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork %s", name);
//
// Safe from any thread, and in a forked copy of a threaded process, because
// `ILog::LogV` is. `static inline`, so that every source file that logs has a
// copy of its own.
[[gnu::format(printf, 3, 4)]] static inline void __LOG__A(ILog* log,
                                                          LOGLEVEL level,
                                                          const char* format,
                                                          ...) {
  if (log == nullptr) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  log->LogV(level, format, arguments);
  va_end(arguments);
}

// The syslog priority of all events: LOG_ERR.
inline constexpr unsigned long kEventPriority = 3;

// Writes the line `source` + " : " + `text` to the system log with the syslog
// priority `level` (3 is LOG_ERR) and the default facility. A '%' in either is
// an ordinary character. Reports nothing. Called on the main thread only.
//
//   WriteEvent("Tamrel Launcher", 3, "wrong parameters.")
//     writes  Tamrel Launcher : wrong parameters.
void WriteEvent(const std::string& source, unsigned long level,
                const std::string& text);
