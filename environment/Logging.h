// The logging call, and events for the system log.

#pragma once

#include <cstdarg>
#include <string>

#include "environment/LoggerLibrary.h"

// The logger of this process. Null until `InitLog` has succeeded, then
// unchanged until the process ends. Written once, on the main thread, before
// any supervision thread exists.
extern ILog* logger;

// Passes `level`, the printf-style `format` and its arguments to `log`
// unchanged; does nothing if `log` is null. `format` begins with a tag, ten
// characters in square brackets that name the speaker, and one blank:
//
//   __LOG__A(logger, LOGLEVEL_DEBUG, "[SERVICE   ] %s has %d items", file, 5);
//
// Safe from any thread, and in a forked child of a threaded process, because
// `ILog::LogV` is. `static inline`: every source file that logs has its own
// copy.
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

// Writes the line `source` + " : " + `text` to the system log. `level` is
// passed to syslog unchanged: a priority, with the default facility unless it
// contains one. '%' is an ordinary character. Failures are not reported. Called
// on the main thread only.
//
//   WriteEvent("Tamrel Launcher", 3, "wrong parameters.")
//     writes  Tamrel Launcher : wrong parameters.
void WriteEvent(const std::string& source, unsigned long level,
                const std::string& text);
