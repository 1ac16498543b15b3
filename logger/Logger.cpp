#include "logger/Logger.h"

#include <cerrno>
#include <chrono>
#include <cinttypes>

#include "logger/CallerIds.h"
#include "logger/LogLevels.h"
#include "logger/LogLine.h"

namespace {

class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ~ErrnoKeeper() { errno = error_; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  const int error_ = errno;
};

}  // namespace

Logger::Logger(const std::string& directory, const std::string& name,
               LOGLEVEL threshold, const LogLimits& limits)
    : threshold_(Severity(threshold)), file_(directory, name, limits) {}

int Logger::Open() {
  if (const int error = WatchForks()) {
    return error;
  }
  if (const int error = lost_.Open()) {
    return error;
  }
  return file_.Open();
}

// From here to the `write`, nothing takes a lock, looks at the time zone, uses
// stdio's streams or has a function-local static: a forked copy of a threaded
// process logs, and would wait forever for what another thread held when it
// was made. A test keeps the list of what is called.
void Logger::LogV(LOGLEVEL level, const char* format,
                  va_list arguments) noexcept {
  if (Severity(level) < threshold_) {
    return;
  }
  const ErrnoKeeper keeper;
  const LogTime now = std::chrono::system_clock::now();
  const LogLine line(now, level, GetCallerIds(), format, arguments);
  if (!ReportLostLines() || !file_.Append(line.text(), now)) {
    lost_.Add(1, errno);
  }
}

// Whatever the threshold: a log with a gap says so.
bool Logger::ReportLostLines() {
  const LostLines::Loss loss = lost_.Take();
  if (loss.lines == 0 ||
      Write(LOGLEVEL_CRITICAL,
            "[LOGGER    ] lines that could not be written: %" PRIu64
            ", errno = %d",
            loss.lines, loss.error)) {
    return true;
  }
  lost_.Add(loss.lines, errno);
  return false;
}

bool Logger::Write(LOGLEVEL level, const char* format, ...) {
  const LogTime now = std::chrono::system_clock::now();
  va_list arguments;
  va_start(arguments, format);
  const LogLine line(now, level, GetCallerIds(), format, arguments);
  va_end(arguments);
  return file_.Append(line.text(), now);
}
