// A logger that keeps what it is given, for one process and its forked copies.
//
// Every call becomes one record in a file: one write in append mode, which
// works from any thread and from any forked copy. RecordingLibrary.cpp puts the
// same logger behind the logger library's interface.

#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "environment/LoggerLibrary.h"

struct LogRecord {
  int level;
  pid_t process;
  std::chrono::nanoseconds time;  // of the steady clock, alike in all processes
  std::string format;
  std::string message;
};

class RecordingLog final : public ILog {
 public:
  // Records in the file at `path`, which is made when missing.
  explicit RecordingLog(const std::string& path);
  ~RecordingLog();
  RecordingLog(const RecordingLog&) = delete;
  RecordingLog& operator=(const RecordingLog&) = delete;

  void LogV(LOGLEVEL level, const char* format, va_list arguments) override;

  // What has been recorded in the file at `path` so far, in order.
  static std::vector<LogRecord> Read(const std::string& path);

 private:
  int file_;
};
