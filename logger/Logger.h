// A logger: the ILog that the library hands out.

#pragma once

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

#include "environment/LoggerLibrary.h"
#include "logger/LogFile.h"

// Lives until the process ends, because the launcher logs even during exit-time
// destruction.
class Logger final : public ILog {
 public:
  // A logger that writes the log `name` in `directory`, an absolute path.
  Logger(const std::string& directory, const std::string& name,
         LOGLEVEL threshold, const LogLimits& limits = {});

  // Must be called first. Opens the log. Returns 0 or an errno value.
  int Open();

  void LogV(LOGLEVEL level, const char* format,
            va_list arguments) noexcept override;

 private:
  // The number of lines that could not be written since the last report, and
  // the errno value of the last one. A process and its forked children share
  // this memory: a child may have ended before writing works again, and two
  // processes must not report the same lines.
  struct LostLines {
    std::atomic<std::uint64_t> count;
    std::atomic<int> error;
  };
  static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

  bool ReportLost();
  [[gnu::format(printf, 3, 4)]] bool Write(LOGLEVEL level, const char* format,
                                           ...);

  const std::size_t threshold_;
  LogFile file_;
  LostLines* lost_ = nullptr;
};
