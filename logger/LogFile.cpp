#include "logger/LogFile.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <utility>

#include "logger/Format.h"

namespace {

constexpr std::string_view kLineFeed = "\n";

// A writer that has found this many full files in a row, because others fill
// each new one first, writes to the next one even if it is full.
constexpr int kMaxFullFiles = 100;

off_t ProcessLimit() {
  rlimit limit;
  constexpr off_t kNone = std::numeric_limits<off_t>::max();
  const bool limited = getrlimit(RLIMIT_FSIZE, &limit) == 0 &&
                       limit.rlim_cur < static_cast<rlim_t>(kNone);
  return limited ? static_cast<off_t>(limit.rlim_cur) : kNone;
}

bool WriteWhole(int descriptor, std::string_view text, std::size_t* written) {
  ssize_t result = 0;
  do {
    result = write(descriptor, text.data(), text.size());
  } while (result < 0 && errno == EINTR);
  *written = static_cast<std::size_t>(std::max<ssize_t>(result, 0));
  return *written == text.size();
}

bool EndsInsideALine(int descriptor, off_t bytes) {
  char last = '\n';
  return bytes > 0 && pread(descriptor, &last, 1, bytes - 1) == 1 &&
         last != '\n';
}

// Whether the file ends with a fragment. A line that is still being written
// looks the same at first: the system may show its beginning before its end.
bool EndsWithAFragment(int descriptor, off_t bytes) {
  if (!EndsInsideALine(descriptor, bytes)) {
    return false;
  }
  // Called for its side effect: it waits for a `write` that is under way. It
  // also moves the descriptor's position, which the next `write` sets again.
  lseek(descriptor, 0, SEEK_HOLE);
  const auto state = StateOf(descriptor);
  return state && state->bytes == bytes && EndsInsideALine(descriptor, bytes);
}

// Whether the file has the first bytes of `text` at `offset`.
bool Has(int descriptor, off_t offset, std::string_view text) {
  constexpr std::size_t kCompared = 64;
  std::array<char, kCompared> read;
  text = text.substr(0, kCompared);
  return pread(descriptor, read.data(), text.size(), offset) ==
             static_cast<ssize_t>(text.size()) &&
         std::equal(text.begin(), text.end(), read.begin());
}

// The descriptor's position: where the last `write` through it ended, whichever
// thread or forked child made it. 0 when it has not been used yet.
off_t EndOfLastWrite(int descriptor) { return lseek(descriptor, 0, SEEK_CUR); }

// Whether `now` is less than `age` after `time`. False when the clock has
// been set back to before `time`.
bool IsWithin(LogTime::duration age, const std::atomic<LogTime>& time,
              LogTime now) {
  const auto passed = now - time.load();
  return passed >= passed.zero() && passed < age;
}

}  // namespace

bool IsDiskFull(int error) { return error == ENOSPC || error == EDQUOT; }

LogFile::LogFile(const std::string& directory, const std::string& name,
                 const LogLimits& limits)
    : path_(std::string(directory).append("/").append(LogFileName(name))),
      limit_(limits.file_bytes),
      rotation_(directory, name, limits.old_files) {}

int LogFile::Open() {
  process_limit_ = ProcessLimit();
  Descriptor file = OpenLog(path_.c_str());
  if (!file.IsOpen()) {
    return IsDiskFull(errno) ? 0 : errno;
  }
  const auto state = StateOf(file.number());
  if (!state) {
    return errno;
  }
  shared_.Replace(std::move(file), *state);
  return 0;
}

bool LogFile::Append(const LogLine& line) {
  {
    const SharedDescriptor::Use use(&shared_);
    if (use.IsGranted() &&
        (HasLookedRecently(line.time()) || Look(use, line.time())) &&
        !IsFull(bytes_, line.text().size())) {
      if (Write(use.number(), line)) {
        return true;
      }
      if (errno != EFBIG) {
        return false;
      }
    }
  }
  return AppendToFreshlyOpened(line);
}

bool LogFile::HasLookedRecently(LogTime now) const {
  return IsWithin(kMaxLookAge, look_time_, now) &&
         bytes_ - look_bytes_ < kMaxLookGrowth;
}

// Ends a fragment at the end of the open file, and remembers this look. Returns
// false if the open file is not the file at the path, or the fragment cannot be
// ended.
bool LogFile::Look(const SharedDescriptor::Use& use, LogTime now) {
  const auto state = StateAt(AT_FDCWD, path_.c_str());
  if (!state || !state->IsSameFile(use.state()) ||
      !EndFragmentAtEnd(use.number(), state->bytes, now)) {
    return false;
  }
  look_time_ = now;
  look_bytes_ = state->bytes;
  return true;
}

void LogFile::ForgetLook() {
  look_time_ = LogTime{};
  bytes_ = kUnknown;
}

bool LogFile::IsFull(off_t bytes, std::size_t line_bytes) const {
  return bytes >= limit_ ||
         bytes > process_limit_ - static_cast<off_t>(line_bytes);
}

bool LogFile::AppendToFreshlyOpened(const LogLine& line) {
  process_limit_ = ProcessLimit();
  const std::size_t line_bytes = line.text().size();
  // No file can hold the line: a rotation would only remove old files.
  if (static_cast<off_t>(line_bytes) > process_limit_) {
    errno = EFBIG;
    return false;
  }
  for (int full_files = 0;; ++full_files) {
    Descriptor file = OpenLog(path_.c_str());
    if (!file.IsOpen()) {
      return (errno == EMFILE || errno == ENFILE) && AppendToOpenFile(line);
    }
    const auto state = StateOf(file.number());
    if (!state) {
      return false;
    }
    if (!IsFull(state->bytes, line_bytes) || full_files == kMaxFullFiles ||
        !rotation_.Rotate(*state)) {
      ForgetLook();
      const bool written =
          EndFragmentAtEnd(file.number(), state->bytes, line.time()) &&
          Write(file.number(), line);
      const int error = errno;
      shared_.Replace(std::move(file), *state);
      errno = error;
      return written;
    }
  }
}

// When no descriptor is free, the line goes to the open file, even to a full or
// renamed one. It does not go to a removed file, which is lost with its lines.
bool LogFile::AppendToOpenFile(const LogLine& line) {
  const int error = errno;
  const SharedDescriptor::Use use(&shared_);
  if (use.IsGranted()) {
    const auto state = StateOf(use.number());
    if (state && state->names > 0) {
      return EndFragmentAtEnd(use.number(), state->bytes, line.time()) &&
             Write(use.number(), line);
    }
  }
  errno = error;
  return false;
}

// Ends the fragment, if any, at the end of the file, whose size is `bytes`.
// Updates `bytes_`, and `others_time_` if another process has written last.
// Returns false, with errno set, if the fragment cannot be ended.
bool LogFile::EndFragmentAtEnd(int descriptor, off_t bytes, LogTime now) {
  if (bytes_ == bytes) {
    return true;
  }
  if (const off_t end = EndOfLastWrite(descriptor); end > 0 && end < bytes) {
    others_time_ = now;
  }
  std::size_t written = 0;
  if (EndsWithAFragment(descriptor, bytes) &&
      !WriteWhole(descriptor, kLineFeed, &written)) {
    return false;
  }
  bytes_ = bytes;
  return true;
}

bool LogFile::Write(int descriptor, const LogLine& line) {
  const std::string_view text = line.text();
  std::size_t written = 0;
  if (!WriteWhole(descriptor, text, &written)) {
    ForgetLook();
    if (written > 0) {
      EndOwnFragment(descriptor, text.substr(0, written));
    }
    return false;
  }
  bytes_ += static_cast<off_t>(text.size());
  if (IsWithin(kMaxOthersAge, others_time_, line.time())) {
    SeparateFromFragment(descriptor, text);
  }
  return true;
}

// Sets errno, because a partial `write` does not.
void LogFile::EndOwnFragment(int descriptor, std::string_view fragment) const {
  const off_t end = EndOfLastWrite(descriptor);
  if (Has(descriptor, end - static_cast<off_t>(fragment.size()), fragment)) {
    PutLineFeed(descriptor, end - 1);
  }
  errno = end >= ProcessLimit() ? EFBIG : ENOSPC;
}

// Ends a fragment that another process has left directly before `line`, which
// has just been written.
void LogFile::SeparateFromFragment(int descriptor,
                                   std::string_view line) const {
  const off_t begin =
      EndOfLastWrite(descriptor) - static_cast<off_t>(line.size());
  if (EndsInsideALine(descriptor, begin) && Has(descriptor, begin, line)) {
    PutLineFeed(descriptor, begin - 1);
  }
}

// Opens the file again, because on some systems even `pwrite` appends when the
// descriptor is in append mode.
void LogFile::PutLineFeed(int descriptor, off_t offset) const {
  const Descriptor file = ::Open(AT_FDCWD, path_.c_str(), O_RDWR | O_NONBLOCK);
  const auto opened = StateOf(file.number());
  const auto written = StateOf(descriptor);
  if (opened && written && opened->IsSameFile(*written)) {
    // If this fails and the fragment is still at the end of the file, the
    // writer of the next line ends it.
    [[maybe_unused]] const ssize_t result =
        pwrite(file.number(), kLineFeed.data(), kLineFeed.size(), offset);
  }
}
