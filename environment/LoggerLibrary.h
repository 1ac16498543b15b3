// The interface of the logger library, liblogger.
//
// The library implements these declarations and includes nothing else of this
// system. The launcher has an `InitLogger` and a `GetLogger` of its own
// (LoggerLibrary.cpp) that load the library from `GetAppPath()` at the first
// call of `InitLogger` and forward to it.

#pragma once

#include <cstdarg>

// A message's severity, and a logger's threshold. The values are fixed;
// LOGLEVEL_VERBOSE is 17, not a bit of its own. By severity:
// VERBOSE < DEBUG < MESSAGE < WARNING < ERROR < CRITICAL.
enum LOGLEVEL : int {
  LOGLEVEL_DEBUG = 1,
  LOGLEVEL_MESSAGE = 2,
  LOGLEVEL_WARNING = 4,
  LOGLEVEL_ERROR = 8,
  LOGLEVEL_CRITICAL = 16,
  LOGLEVEL_VERBOSE = 17,
};

// A logger. It belongs to the library, lives until the process ends and is
// never deleted: a virtual destructor would take slots of the table, and `LogV`
// has to be the third. The two operations before it come down to `LogV`.
class ILog {
 public:
  // Writes `message` as it stands, at `level`.
  virtual void LogText(LOGLEVEL level, const char* message) {
    Log(level, "%s", message);
  }

  // Writes the printf-style `format` with the arguments that follow it, at
  // `level`.
  [[gnu::format(printf, 3, 4)]] virtual void Log(LOGLEVEL level,
                                                 const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    LogV(level, format, arguments);
    va_end(arguments);
  }

  // Writes the printf-style `format` with `arguments`, at `level`, as one line,
  // if `level` is at least as severe as the logger's threshold. `arguments` is
  // consumed. Safe from any thread at any time and in a forked copy of a
  // threaded process; keeps `errno`; never throws.
  virtual void LogV(LOGLEVEL level, const char* format, va_list arguments) = 0;

 protected:
  ILog() = default;
  ~ILog() = default;
  ILog(const ILog&) = default;
  ILog& operator=(const ILog&) = default;
};

// The version of this interface, the first argument of `GetLogger`.
inline constexpr int kLoggerInterfaceVersion = 2;

extern "C" {

// Prepares `directory` (a path, made with its parents when missing) to hold the
// logs. Returns 0, else the errno that tells why logs cannot be written there.
// In the launcher also non-zero when the library cannot be loaded. To be called
// once, before any other thread exists.
int InitLogger(const char* directory);

// Makes the logger `name` with the threshold `threshold` and stores it in
// `*logger`. `version` is the version of this interface that the caller was
// built against, `kLoggerInterfaceVersion`. Returns 0, else an errno with
// `*logger` left alone. To be called after `InitLogger` has returned 0.
int GetLogger(int version, const char* name, LOGLEVEL threshold, ILog** logger);

}  // extern "C"
