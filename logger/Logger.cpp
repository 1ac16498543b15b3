#include "logger/Logger.h"

#include <sys/mman.h>

#include <cerrno>
#include <chrono>
#include <new>

#include "logger/Format.h"
#include "logger/LogLine.h"
#include "logger/ThreadId.h"

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
  if (const int error = file_.Open()) {
    return error;
  }
  void* const memory = mmap(nullptr, sizeof(LostLines), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANON, -1, 0);
  if (memory == MAP_FAILED) {
    return errno;
  }
  lost_ = ::new (memory) LostLines{};
  return 0;
}

// From here to the `write`, no function reads the time zone, uses stdio's
// streams, has a function-local static or takes a lock that another thread may
// have held at a fork, except malloc's, which `fork` releases in the child. A
// forked child of a threaded process may log, and would wait for such a lock
// forever. A test compares the functions that the library's sources call with a
// list of the allowed ones. It leaves out EntryPoints.cpp.
void Logger::LogV(LOGLEVEL level, const char* format,
                  va_list arguments) noexcept {
  if (Severity(level) < threshold_) {
    return;
  }
  const ErrnoKeeper keeper;
  const LogLine line(std::chrono::system_clock::now(), level, GetCallerIds(),
                     format, arguments);
  if (!ReportLost() || !file_.Append(line)) {
    lost_->error.store(errno, std::memory_order_relaxed);
    lost_->count.fetch_add(1, std::memory_order_relaxed);
  }
}

// Reports lost lines, whatever the threshold, so that a log never hides a gap.
// Returns false, with errno set, when the report cannot be written; the caller
// must then not write its line. The load comes first because there is rarely
// anything to report, and it is cheaper than the exchange.
bool Logger::ReportLost() {
  if (lost_->count.load(std::memory_order_relaxed) == 0) {
    return true;
  }
  const std::uint64_t lines =
      lost_->count.exchange(0, std::memory_order_relaxed);
  const int error = lost_->error.load(std::memory_order_relaxed);
  if (lines == 0 || Write(LOGLEVEL_CRITICAL, kLostLinesMessage,
                          static_cast<unsigned long long>(lines), error)) {
    return true;
  }
  lost_->count.fetch_add(lines, std::memory_order_relaxed);
  return false;
}

bool Logger::Write(LOGLEVEL level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const LogLine line(std::chrono::system_clock::now(), level, GetCallerIds(),
                     format, arguments);
  va_end(arguments);
  return file_.Append(line);
}
