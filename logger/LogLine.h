// One line of a log, laid out as Format.h says, with the message escaped as
// Escape.h says.
//
// A message of up to a few thousand bytes without escapes needs no allocation.
// Any other takes at most about five times `kMaxMessageBytes` of memory, which
// is freed with the line. When an allocation fails, the message is cut to fit.
//
// Takes no lock but malloc's, which `fork` releases in the child: safe in a
// forked child.

#pragma once

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "environment/LoggerLibrary.h"
#include "logger/ThreadId.h"

// A longer message is cut to this length, before escaping.
constexpr std::size_t kMaxMessageBytes = std::size_t{1024} * 1024;

// The index of `level` in kLevelsBySeverity. A value that is not a level counts
// as LOGLEVEL_ERROR, like an unknown text in the configuration.
std::size_t Severity(LOGLEVEL level);

using LogTime = std::chrono::system_clock::time_point;

class LogLine {
 public:
  // Formats the printf-style `format` with `arguments`, which is consumed. A
  // null `format` is the text "(null)".
  [[gnu::format(printf, 5, 0)]] LogLine(LogTime time, LOGLEVEL level,
                                        CallerIds ids, const char* format,
                                        va_list arguments);
  LogLine(const LogLine&) = delete;
  LogLine& operator=(const LogLine&) = delete;

  LogTime time() const { return time_; }
  // The whole line with its line feed. Valid as long as this object.
  std::string_view text() const {
    return {begin_, static_cast<std::size_t>(end_ - begin_)};
  }

 private:
  struct Free {
    void operator()(char* memory) const { std::free(memory); }
  };
  using Memory = std::unique_ptr<char[], Free>;

  static constexpr std::size_t kBytes = 4096;

  std::string_view message() const {
    return {message_, static_cast<std::size_t>(end_ - message_)};
  }

  [[gnu::format(printf, 2, 0)]] void Format(const char* format,
                                            va_list arguments);
  [[gnu::format(printf, 3, 0)]] void FormatLong(std::size_t length,
                                                const char* format,
                                                va_list arguments);
  void EscapeMessage();

  struct Moved {
    bool moved;
    Memory before;
  };
  // Moves the fields before the message to new memory with room for a message
  // of `message_bytes`. The old message stays readable where it is: in the
  // buffer, or in the old memory, which the result owns as `before`. Changes
  // nothing if there is no memory.
  Moved MoveToMemory(std::size_t message_bytes);

  const LogTime time_;
  std::array<char, kBytes> buffer_;
  Memory memory_;
  char* begin_ = buffer_.data();
  char* message_ = begin_;
  char* end_ = begin_;
  std::string_view mark_;
};
