#include "logger/LogLine.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

#include "logger/Escape.h"
#include "logger/Format.h"

namespace {

// After the message, a line has at most a mark and its line feed.
constexpr std::size_t kMaxMarkBytes =
    std::max(kCutMark.size(), kUnformattableMark.size());
constexpr std::size_t kTailBytes = kMaxMarkBytes + 1;

// When an allocation fails, this much of a message that needs escapes is kept.
constexpr std::size_t kKeptWithoutMemory = 512;

char* Put(std::string_view text, char* out) {
  return std::copy(text.begin(), text.end(), out);
}

constexpr unsigned kBase = 10;

// Exactly `width` digits.
char* PutDigits(unsigned value, int width, char* out) {
  for (char* digit = out + width; digit != out; value /= kBase) {
    *--digit = static_cast<char>('0' + value % kBase);
  }
  return out + width;
}

char* PutNumber(std::uint64_t value, char* out) {
  constexpr std::size_t kMaxDigits = 20;
  std::array<char, kMaxDigits> digits;
  char* first = digits.end();
  do {
    *--first = static_cast<char>('0' + value % kBase);
    value /= kBase;
  } while (value != 0);
  return std::copy(first, digits.end(), out);
}

// <chrono>'s calendar is plain arithmetic; gmtime_r and localtime_r take a
// lock.
char* PutTime(LogTime time, char* out) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(
      std::chrono::floor<std::chrono::microseconds>(time - day));
  std::array<char, kTimeShape.size()> digits;
  const char* digit = digits.data();
  char* end = digits.data();
  const auto put = [&end](auto value, int width) {
    end = PutDigits(static_cast<unsigned>(value), width, end);
  };
  put(static_cast<int>(date.year()), 4);
  put(static_cast<unsigned>(date.month()), 2);
  put(static_cast<unsigned>(date.day()), 2);
  put(clock.hours().count(), 2);
  put(clock.minutes().count(), 2);
  put(clock.seconds().count(), 2);
  put(clock.subseconds().count(), 6);
  return std::transform(
      kTimeShape.begin(), kTimeShape.end(), out,
      [&digit](char shape) { return shape == kTimeDigit ? *digit++ : shape; });
}

}  // namespace

// The levels' values are not in the order of their severity. An unknown level
// counts as LOGLEVEL_ERROR.
std::size_t Severity(LOGLEVEL level) {
  const auto place =
      std::ranges::find(kLevelsBySeverity, level, &LevelFormat::level);
  return place == kLevelsBySeverity.end()
             ? Severity(LOGLEVEL_ERROR)
             : static_cast<std::size_t>(place - kLevelsBySeverity.begin());
}

LogLine::LogLine(LogTime time, LOGLEVEL level, CallerIds ids,
                 const char* format, va_list arguments)
    : time_(time) {
  char* out = PutTime(time, begin_);
  *out++ = ' ';
  out = Put(kLevelsBySeverity[Severity(level)].text, out);
  *out++ = ' ';
  out = PutNumber(static_cast<std::uint64_t>(ids.process), out);
  *out++ = ':';
  out = PutNumber(ids.thread, out);
  *out++ = ' ';
  message_ = out;
  Format(format == nullptr ? "(null)" : format, arguments);
  if (!IsPlain(message())) {
    EscapeMessage();
  }
  end_ = Put(mark_, end_);
  *end_++ = '\n';
}

void LogLine::Format(const char* format, va_list arguments) {
  const auto room =
      static_cast<std::size_t>(buffer_.end() - message_) - kTailBytes;
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(message_, room, format, arguments);
  if (length < 0) {
    end_ = std::copy_n(format, strnlen(format, room), message_);
    mark_ = kUnformattableMark;
  } else if (static_cast<std::size_t>(length) < room) {
    end_ = message_ + length;
  } else {
    end_ = message_ + room - 1;
    FormatLong(static_cast<std::size_t>(length), format, again);
  }
  va_end(again);
}

// The buffer already holds the beginning of the message.
void LogLine::FormatLong(std::size_t length, const char* format,
                         va_list arguments) {
  const std::size_t kept = std::min(length, kMaxMessageBytes);
  if (kept < length) {
    mark_ = kCutMark;
  }
  if (!MoveToMemory(kept).moved) {
    mark_ = kCutMark;
    return;
  }
  // The caller has copied the arguments.
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  std::vsnprintf(message_, kept + 1, format, arguments);
  end_ = message_ + kept;
}

void LogLine::EscapeMessage() {
  const std::string_view raw = message();
  const Moved place = MoveToMemory(raw.size() * kEscapedByteBytes);
  if (place.moved) {
    end_ = Escape(raw, message_);
    return;
  }
  std::array<char, kKeptWithoutMemory> kept;
  const std::size_t length = raw.copy(kept.data(), kept.size());
  if (length < raw.size()) {
    mark_ = kCutMark;
  }
  end_ = Escape({kept.data(), length}, message_);
}

LogLine::Moved LogLine::MoveToMemory(std::size_t message_bytes) {
  const auto prefix = static_cast<std::size_t>(message_ - begin_);
  Memory memory(
      static_cast<char*>(std::malloc(prefix + message_bytes + kTailBytes)));
  if (memory == nullptr) {
    return {false, nullptr};
  }
  begin_ = std::copy_n(begin_, prefix, memory.get()) - prefix;
  message_ = end_ = begin_ + prefix;
  memory_.swap(memory);
  return {true, std::move(memory)};
}
