// A logger: what the library's callers hold as an ILog.

#pragma once

#include <cstdarg>
#include <string>

#include "environment/LoggerLibrary.h"
#include "logger/Limits.h"
#include "logger/LogFile.h"
#include "logger/LostLines.h"

// Lives until the process ends: forked copies log while the process's exit-time
// destruction goes on.
class Logger final : public ILog {
 public:
  // A logger on `<directory>/<name>.log`; the directory's path is absolute.
  Logger(const std::string& directory, const std::string& name,
         LOGLEVEL threshold, const LogLimits& limits = {});

  // Opens the logger's file. Returns 0, else the errno. Goes before all else.
  int Open();

  void LogV(LOGLEVEL level, const char* format,
            va_list arguments) noexcept override;

 private:
  bool ReportLostLines();
  [[gnu::format(printf, 3, 4)]] bool Write(LOGLEVEL level, const char* format,
                                           ...);

  const int threshold_;
  LogFile file_;
  LostLines lost_;
};
