#include "tools/log/LogLine.h"

#include <algorithm>
#include <charconv>
#include <chrono>

namespace {

// What a time and its parts take.
constexpr std::size_t kTimeBytes = 27;
constexpr std::size_t kDayBytes = 10;
constexpr std::string_view kTimeShape = "dddd-dd-ddTdd:dd:dd.ddddddZ";

constexpr std::string_view kLauncherTag = "[LAUNCHER  ] ";
constexpr std::string_view kLoggerTag = "[LOGGER    ] ";

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The number that `count` digits stand for.
std::int64_t Digits(std::string_view text, std::size_t at, std::size_t count) {
  std::int64_t value = 0;
  for (const char c : text.substr(at, count)) {
    value = value * 10 + (c - '0');
  }
  return value;
}

// Removes `prefix` from the start of `text`, if it stands there.
bool Take(std::string_view* text, std::string_view prefix) {
  if (!text->starts_with(prefix)) {
    return false;
  }
  text->remove_prefix(prefix.size());
  return true;
}

// Removes a number from the start of `text`, if one stands there.
template <class Number>
bool TakeNumber(std::string_view* text, Number* number) {
  const char* const begin = text->data();
  const auto [end, error] =
      std::from_chars(begin, begin + text->size(), *number);
  text->remove_prefix(static_cast<std::size_t>(end - begin));
  return error == std::errc();
}

bool ParseEnd(std::string_view message, LogEvent* event) {
  constexpr std::string_view kWords = " is killed. ret = ";
  const std::size_t words = message.rfind(kWords);
  if (words == std::string_view::npos) {
    return false;
  }
  std::string_view rest = message.substr(words + kWords.size());
  const std::string_view left = message.substr(0, words);
  std::int64_t ret = 0;
  int status = 0;
  if (!TakeNumber(&rest, &ret) || !Take(&rest, ", status = ") ||
      !TakeNumber(&rest, &status) || !rest.empty()) {
    return false;
  }
  const std::size_t blank = left.rfind(' ');
  if (blank == std::string_view::npos) {
    return false;
  }
  std::string_view child = left.substr(blank + 1);
  if (!TakeNumber(&child, &event->child) || !child.empty()) {
    return false;
  }
  event->name = left.substr(0, blank);
  event->status = status;
  return true;
}

LogEventKind ParseError(std::string_view message, LogEvent* event) {
  constexpr std::string_view kIsEmpty = " is empty";
  if (ParseEnd(message, event)) {
    return LogEventKind::kEnd;
  }
  if (Take(&message, "Failed to fork ")) {
    event->name = message;
    return LogEventKind::kForkFailed;
  }
  if (message.ends_with(kIsEmpty) && Take(&message, "program path of ")) {
    message.remove_suffix(std::min(kIsEmpty.size(), message.size()));
    event->name = message;
    return LogEventKind::kNoProgram;
  }
  if (message == "There is an item has no name.") {
    return LogEventKind::kNameless;
  }
  return message == "Error while parsing saved json string."
             ? LogEventKind::kUnparsable
             : LogEventKind::kOther;
}

// The level tells a start apart from an end whose item's name begins alike.
LogEventKind ParseMessage(std::string_view level, std::string_view message,
                          LogEvent* event) {
  if (Take(&message, kLauncherTag)) {
    if (level == "DEBUG" && Take(&message, "Start to fork ")) {
      event->name = message;
      return LogEventKind::kStart;
    }
    return level == "ERROR" ? ParseError(message, event) : LogEventKind::kOther;
  }
  if (Take(&message, kLoggerTag) && TakeNumber(&message, &event->lost) &&
      message.starts_with(" lines could not be written.")) {
    return LogEventKind::kLost;
  }
  return LogEventKind::kOther;
}

int HexDigit(char c) {
  if (IsDigit(c)) {
    return c - '0';
  }
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

}  // namespace

std::optional<LogEvent> LogLineParser::Parse(std::string_view line) {
  LogEvent event;
  if (line.size() <= kTimeBytes || !ParseTime(line, &event.time)) {
    return std::nullopt;
  }
  line.remove_prefix(kTimeBytes);
  if (!Take(&line, " ")) {
    return std::nullopt;
  }
  const std::string_view level = line.substr(0, line.find(' '));
  line.remove_prefix(level.size());
  if (!Take(&line, " ") || !TakeNumber(&line, &event.process) ||
      !Take(&line, ":") || !TakeNumber(&line, &event.thread) ||
      !Take(&line, " ")) {
    return std::nullopt;
  }
  event.kind = ParseMessage(level, line, &event);
  return event;
}

bool LogLineParser::ParseTime(std::string_view text, LogMicros* time) {
  for (std::size_t i = 0; i < kTimeBytes; ++i) {
    if (kTimeShape[i] == 'd' ? !IsDigit(text[i]) : text[i] != kTimeShape[i]) {
      return false;
    }
  }
  if (text.substr(0, kDayBytes) != day_) {
    using namespace std::chrono;
    const year_month_day date(year(static_cast<int>(Digits(text, 0, 4))),
                              month(static_cast<unsigned>(Digits(text, 5, 2))),
                              day(static_cast<unsigned>(Digits(text, 8, 2))));
    if (!date.ok()) {
      return false;
    }
    day_ = text.substr(0, kDayBytes);
    day_start_ =
        duration_cast<microseconds>(sys_days(date).time_since_epoch()).count();
  }
  const std::int64_t seconds = Digits(text, 11, 2) * 3600 +
                               Digits(text, 14, 2) * 60 + Digits(text, 17, 2);
  *time = day_start_ + seconds * kMicrosPerSecond + Digits(text, 20, 6);
  return true;
}

std::string Unescaped(std::string_view text) {
  constexpr std::size_t kHexBytes = 4;
  std::string result;
  while (!text.empty()) {
    if (Take(&text, "\\n")) {
      result += '\n';
    } else if (Take(&text, "\\\\")) {
      result += '\\';
    } else if (text.size() >= kHexBytes && text.starts_with("\\x") &&
               HexDigit(text[2]) >= 0 && HexDigit(text[3]) >= 0) {
      result += static_cast<char>(HexDigit(text[2]) * 16 + HexDigit(text[3]));
      text.remove_prefix(kHexBytes);
    } else {
      result += text[0];
      text.remove_prefix(1);
    }
  }
  return result;
}
