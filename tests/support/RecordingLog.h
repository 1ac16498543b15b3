// A logger that keeps its messages, for one process and its forked children,
// and the meaning of the launcher's messages.
//
// Every call becomes one record in a file: one write in append mode, which
// works from any thread and from any forked child. RecordingLibrary.cpp
// offers the same logger through the logger library's interface.

#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "environment/LoggerLibrary.h"

struct LogRecord {
  int level;
  pid_t process;
  std::chrono::nanoseconds
      time;  // of the steady clock, the same in all processes
  std::string format;
  std::string message;
};

class RecordingLog final : public ILog {
 public:
  // Records in the file at `path`, which it makes when missing.
  explicit RecordingLog(const std::string& path);
  ~RecordingLog();
  RecordingLog(const RecordingLog&) = delete;
  RecordingLog& operator=(const RecordingLog&) = delete;

  void LogV(LOGLEVEL level, const char* format, va_list arguments) override;

  // The records in the file at `path` so far, in order.
  static std::vector<LogRecord> Read(const std::string& path);

 private:
  int file_;
};

// The text of a message: `format`, from launcher/Messages.h, with its
// arguments.
[[gnu::format(printf, 1, 2)]] std::string Message(const char* format, ...);

// The end of a child, as the launcher logs it.
struct LoggedEnd {
  std::string name;  // up to the first blank
  pid_t child = 0;
  pid_t ret = 0;
  int status = 0;
  std::chrono::nanoseconds time{0};
};

// None when `record` does not log an end.
std::optional<LoggedEnd> EndIn(const LogRecord& record);

// The name of the item whose start `record` logs, up to the first blank; none
// when it does not log a start.
std::optional<std::string> StartIn(const LogRecord& record);
