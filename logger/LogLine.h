// One line of a log:
//
//   2026-11-21T06:20:31.123456Z ERROR 4711:4713 [LAUNCHER  ] the message
//
// that is the time (UTC), the level's text, the process's and the thread's
// number, the message as Escape.h writes it, and a line feed.
//
// A message of up to a few thousand bytes costs no allocation. A longer one, or
// one to be escaped, takes memory of at most about five times
// `kMaxMessageBytes`, given back with the line. Where there is no memory the
// message is cut to what fits without.
//
// Takes no lock, whatever the message: safe in a forked copy.

#pragma once

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "environment/LoggerLibrary.h"
#include "logger/CallerIds.h"
#include "logger/Limits.h"

// What a cut message ends with. No message holds a single backslash.
constexpr std::string_view kCutMark = "\\...";

// What follows a format that cannot be formatted, written in its place.
constexpr std::string_view kUnformattableMark = "\\?";

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

  // The whole line with its line feed, valid as long as this object.
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

  // Gives the line room for a message of so many bytes and drops the message it
  // has. Returns the memory that held it; on failure changes nothing.
  struct Moved {
    bool moved;
    Memory before;
  };
  Moved MoveToMemory(std::size_t message_bytes);

  std::array<char, kBytes> buffer_;
  Memory memory_;
  char* begin_ = buffer_.data();
  char* message_ = begin_;
  char* end_ = begin_;
  std::string_view mark_;
};
