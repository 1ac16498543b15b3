#include "tests/support/RecordingLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "launcher/Messages.h"

namespace {

// The system's messages contain neither.
constexpr char kFieldEnd = '\x1f';
constexpr char kRecordEnd = '\x1e';

std::string Field(std::istream& record) {
  std::string field;
  std::getline(record, field, kFieldEnd);
  return field;
}

}  // namespace

RecordingLog::RecordingLog(const std::string& path) {
  // Above the standard descriptors, which tests look at.
  constexpr int kFirst = 200;
  const int file =
      open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  file_ = fcntl(file, F_DUPFD_CLOEXEC, kFirst);
  close(file);
}

RecordingLog::~RecordingLog() { close(file_); }

void RecordingLog::LogV(LOGLEVEL level, const char* format, va_list arguments) {
  constexpr std::size_t kMessageBytes = 4096;
  std::array<char, kMessageBytes> message;
  std::array<char, 2 * kMessageBytes> record;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  std::vsnprintf(message.data(), message.size(), format, arguments);
  const int length = std::snprintf(
      record.data(), record.size(), "%d%c%d%c%lld%c%s%c%s%c%c", level,
      kFieldEnd, getpid(), kFieldEnd,
      static_cast<long long>(std::chrono::nanoseconds(now).count()), kFieldEnd,
      format, kFieldEnd, message.data(), kFieldEnd, kRecordEnd);
  [[maybe_unused]] const ssize_t count =
      write(file_, record.data(), static_cast<std::size_t>(length));
}

std::vector<LogRecord> RecordingLog::Read(const std::string& path) {
  std::vector<LogRecord> records;
  std::ifstream file(path, std::ios::binary);
  std::string line;
  while (std::getline(file, line, kRecordEnd) && !file.eof()) {
    std::istringstream record(line);
    LogRecord& next = records.emplace_back();
    next.level = std::stoi(Field(record));
    next.process = std::stoi(Field(record));
    next.time = std::chrono::nanoseconds(std::stoll(Field(record)));
    next.format = Field(record);
    next.message = Field(record);
  }
  return records;
}

std::string Message(const char* format, ...) {
  std::array<char, 8192> text;
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  return text.data();
}

std::optional<LoggedEnd> EndIn(const LogRecord& record) {
  std::array<char, 256> name{};
  LoggedEnd end;
  // The format is that of a reader, too, for short names without blanks.
  if (record.format != kEndMessage ||
      std::sscanf(record.message.c_str(), kEndMessage, name.data(), &end.child,
                  &end.ret, &end.status) != 4) {
    return std::nullopt;
  }
  end.name = name.data();
  end.time = record.time;
  return end;
}

std::optional<std::string> StartIn(const LogRecord& record) {
  std::array<char, 256> name{};
  if (record.format != kStartMessage ||
      std::sscanf(record.message.c_str(), kStartMessage, name.data()) != 1) {
    return std::nullopt;
  }
  return name.data();
}
