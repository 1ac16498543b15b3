#include "tools/log/LogLine.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <map>

#include "launcher/Messages.h"
#include "logger/Format.h"

namespace {

// The parts of a message that a printf format's conversions wrote.
struct Conversions {
  std::string_view text;                  // of %s
  std::array<std::int64_t, 3> numbers{};  // of %d and %llu, the last one first
};

struct MessageFormat {
  std::string_view format;
  LOGLEVEL level;
  LogEventKind kind;
};

// The level distinguishes a start from an end of an item whose name begins like
// the start's message. Among the others an end comes first, since it has the
// longest tail.
constexpr std::array<MessageFormat, 7> kMessages{{
    {kEndMessage, LOGLEVEL_ERROR, LogEventKind::kEnd},
    {kStartMessage, LOGLEVEL_DEBUG, LogEventKind::kStart},
    {kForkFailedMessage, LOGLEVEL_ERROR, LogEventKind::kForkFailed},
    {kNoProgramMessage, LOGLEVEL_ERROR, LogEventKind::kNoProgram},
    {kNamelessMessage, LOGLEVEL_ERROR, LogEventKind::kNameless},
    {kParseFailedMessage, LOGLEVEL_ERROR, LogEventKind::kParseFailed},
    {kLostLinesMessage, LOGLEVEL_CRITICAL, LogEventKind::kLost},
}};

// Removes the number that `text` ends with.
std::optional<std::int64_t> TakeLastNumber(std::string_view& text) {
  std::size_t start = text.find_last_not_of("0123456789") + 1;
  if (start > 0 && text[start - 1] == '-') {
    --start;
  }
  const auto number = ToNumber(text.substr(start));
  text = text.substr(0, start);
  return number;
}

// Splits `message` by `format`, which has at most one %s, before all numbers.
std::optional<Conversions> Match(std::string_view message,
                                 std::string_view format) {
  const std::string_view start = format.substr(0, format.find('%'));
  if (!message.starts_with(start)) {
    return std::nullopt;
  }
  message.remove_prefix(start.size());
  Conversions result;
  auto number = result.numbers.begin();
  std::size_t percent = 0;
  while ((percent = format.rfind('%')) != std::string_view::npos) {
    const std::string_view literal =
        format.substr(format.find_first_of("sdu", percent) + 1);
    if (!message.ends_with(literal)) {
      return std::nullopt;
    }
    message.remove_suffix(literal.size());
    if (format[percent + 1] == 's') {
      result.text = message;
      return result;
    }
    const auto value = TakeLastNumber(message);
    if (!value) {
      return std::nullopt;
    }
    *number++ = *value;
    format = format.substr(0, percent);
  }
  return message.empty() ? std::optional(result) : std::nullopt;
}

// Whether the logger ended `message` with `mark`. After an odd number of
// backslashes the mark's own belongs to an escaped backslash.
bool HasMark(std::string_view message, std::string_view mark) {
  if (!message.ends_with(mark)) {
    return false;
  }
  message.remove_suffix(mark.size());
  const std::size_t last = message.find_last_not_of(kEscape) + 1;
  return (message.size() - last) % 2 == 0;
}

void SetMessage(LogEvent& event, LOGLEVEL level, std::string_view message) {
  if (HasMark(message, kCutMark) || HasMark(message, kUnformattableMark)) {
    event.kind = LogEventKind::kCut;
    return;
  }
  for (const MessageFormat& known : kMessages) {
    const auto found =
        level == known.level ? Match(message, known.format) : std::nullopt;
    if (!found) {
      continue;
    }
    event.kind = known.kind;
    event.name = found->text;
    if (known.kind == LogEventKind::kEnd) {
      event.status = static_cast<int>(found->numbers[0]);
      event.child = found->numbers[2];
    } else if (known.kind == LogEventKind::kLost) {
      event.error = static_cast<int>(found->numbers[0]);
      event.lost = static_cast<std::uint64_t>(found->numbers[1]);
    }
    return;
  }
}

// Removes the text up to the first `end`, and `end`, and returns the text. If
// there is no `end`, removes nothing and returns an empty text.
std::string_view TakeUpTo(std::string_view& line, char end) {
  const std::size_t size = line.find(end);
  if (size == std::string_view::npos) {
    return {};
  }
  const std::string_view text = line.substr(0, size);
  line.remove_prefix(size + 1);
  return text;
}

// A line that begins where `line` does.
std::optional<LogEvent> ParseWhole(std::string_view line) {
  const std::string_view time = TakeUpTo(line, ' ');
  const auto micros = ParseLogTime(time);
  if (!micros || time.size() != kTimeShape.size()) {
    return std::nullopt;
  }
  const auto level = std::ranges::find(kLevelsBySeverity, TakeUpTo(line, ' '),
                                       &LevelFormat::text);
  const auto process = ToNumber(TakeUpTo(line, ':'));
  const auto thread = ToNumber(TakeUpTo(line, ' '));
  if (level == kLevelsBySeverity.end() || !process || !thread) {
    return std::nullopt;
  }
  LogEvent event;
  event.time = *micros;
  event.process = *process;
  event.thread = *thread;
  SetMessage(event, level->level, line);
  return event;
}

}  // namespace

// A name may look like a whole line, but not like one with a later time: the
// items file was written before the line.
std::optional<LogEvent> ParseLine(std::string_view line) {
  constexpr std::string_view kTimeEnd = "Z ";
  static_assert(kTimeShape.ends_with(kTimeEnd[0]));
  auto event = ParseWhole(line);
  std::size_t fragments = 0;
  for (std::size_t at = line.find(kTimeEnd, kTimeShape.size());
       at != std::string_view::npos; at = line.find(kTimeEnd, at + 1)) {
    const auto later = ParseWhole(line.substr(at + 1 - kTimeShape.size()));
    if (later && (!event || event->kind == LogEventKind::kOther ||
                  later->time > event->time)) {
      event = later;
      event->fragments = ++fragments;
    }
  }
  return event;
}

std::string Unescaped(std::string_view text) {
  constexpr std::size_t kEscapeBytes = 2;
  constexpr std::size_t kHexEscapeBytes = 4;
  std::string result;
  while (!text.empty()) {
    const auto digit = [&](std::size_t i) {
      return i < text.size() ? kHexDigits.find(text[i]) : kHexDigits.npos;
    };
    std::size_t bytes = kEscapeBytes;
    if (text.starts_with("\\n")) {
      result += '\n';
    } else if (text.starts_with("\\\\")) {
      result += kEscape;
    } else if (text.starts_with("\\x") && digit(2) != kHexDigits.npos &&
               digit(3) != kHexDigits.npos) {
      result += static_cast<char>(digit(2) * kHexDigits.size() + digit(3));
      bytes = kHexEscapeBytes;
    } else {
      result += text[0];
      bytes = 1;
    }
    text.remove_prefix(bytes);
  }
  return result;
}

// The system's own macros would do, but for their words on stopped children.
WaitStatus::WaitStatus(int word)
    : code((word >> 8) & 0xFF), signal(word & 0x7F), core((word & 0x80) != 0) {}

EndCause WaitStatus::Cause() const {
  if (signal == 0) {
    return code == 0 ? EndCause::kSuccess : EndCause::kFailure;
  }
  if (core) {
    return EndCause::kCore;
  }
  return signal == SIGKILL ? EndCause::kKilled : EndCause::kSignal;
}

std::string WaitStatus::Text() const {
  if (signal == 0) {
    return "exit " + std::to_string(code);
  }
  return SignalName(signal) + (core ? " core" : "");
}

std::string SignalName(int signal) {
  static const std::map<int, std::string> kNames{
      {SIGHUP, "SIGHUP"},       {SIGINT, "SIGINT"},   {SIGQUIT, "SIGQUIT"},
      {SIGILL, "SIGILL"},       {SIGTRAP, "SIGTRAP"}, {SIGABRT, "SIGABRT"},
      {SIGBUS, "SIGBUS"},       {SIGFPE, "SIGFPE"},   {SIGKILL, "SIGKILL"},
      {SIGUSR1, "SIGUSR1"},     {SIGSEGV, "SIGSEGV"}, {SIGUSR2, "SIGUSR2"},
      {SIGPIPE, "SIGPIPE"},     {SIGALRM, "SIGALRM"}, {SIGTERM, "SIGTERM"},
      {SIGXCPU, "SIGXCPU"},     {SIGXFSZ, "SIGXFSZ"}, {SIGPROF, "SIGPROF"},
      {SIGVTALRM, "SIGVTALRM"}, {SIGSYS, "SIGSYS"},   {SIGIO, "SIGIO"}};
  const auto name = kNames.find(signal);
  return name == kNames.end() ? "signal " + std::to_string(signal)
                              : name->second;
}
