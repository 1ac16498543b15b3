// The interface of the logger library, liblogger.
//
// The library implements these declarations. The launcher's own `InitLogger`
// and `GetLogger` (LoggerLibrary.cpp) load the library from `GetAppPath()` when
// `InitLogger` is first called, and forward to it.

#pragma once

#include <cstdarg>

// A message's severity, and a logger's threshold. By severity:
// VERBOSE < DEBUG < MESSAGE < WARNING < ERROR < CRITICAL.
//
// Deliberate: LOGLEVEL_VERBOSE is 17, not a bit of its own. Logger libraries
// that were built separately know it by this value, and would take any other
// value for another level.
enum LOGLEVEL : int {
  LOGLEVEL_DEBUG = 1,
  LOGLEVEL_MESSAGE = 2,
  LOGLEVEL_WARNING = 4,
  LOGLEVEL_ERROR = 8,
  LOGLEVEL_CRITICAL = 16,
  LOGLEVEL_VERBOSE = 17,
};

// A logger. It belongs to the library and is never deleted. It lives until the
// process ends, because the launcher logs the end of a child even during
// exit-time destruction.
//
// Deliberate: `LogV` is the third virtual function, and there is no virtual
// destructor, which would take slots in the table. Otherwise a launcher would
// call the wrong function of a library that was built separately.
class ILog {
 public:
  // Writes `message` through `LogV`; '%' has no special meaning in it.
  virtual void LogText(LOGLEVEL level, const char* message) {
    Log(level, "%s", message);
  }

  // Writes the printf-style `format` with its arguments through `LogV`.
  [[gnu::format(printf, 3, 4)]] virtual void Log(LOGLEVEL level,
                                                 const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    LogV(level, format, arguments);
    va_end(arguments);
  }

  // Writes the printf-style `format` with `arguments`, which it consumes, as
  // one line if `level` is at least as severe as the threshold. Safe from any
  // thread and in a forked child of a threaded process; keeps `errno`; never
  // throws.
  virtual void LogV(LOGLEVEL level, const char* format, va_list arguments) = 0;

 protected:
  ILog() = default;
  ~ILog() = default;
  ILog(const ILog&) = default;
  ILog& operator=(const ILog&) = default;
};

// The version of this interface, the first argument of `GetLogger`.
inline constexpr int kLoggerInterfaceVersion = 2;

// In the launcher, both functions also return ENOENT if the library is not
// loaded, and ECANCELED if it throws.
extern "C" {

// Prepares `directory` to hold the logs. Makes it and its parents if they are
// missing. Returns 0, or an errno value that says why logs cannot be written
// there. Must be called before any other thread uses the library.
int InitLogger(const char* directory);

// Makes a logger that writes to `name`.log in the directory, and stores it in
// `*logger`. `name` has 1 to 200 bytes without "/". Do not use both "x" and
// "x.1" in one directory: x.1.log is also the name of an old file of "x".
// `version` is the `kLoggerInterfaceVersion` that the caller was built with.
// Returns 0, or an errno value and leaves `*logger` alone. Must be called after
// `InitLogger` has returned 0.
int GetLogger(int version, const char* name, LOGLEVEL threshold, ILog** logger);

}  // extern "C"
