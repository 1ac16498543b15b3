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
  // Called for its side effect: it waits for a `write` that is under way.
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

// The end of the last `write` through `descriptor`, unless another thread or a
// forked child, which share the position, has moved it since.
off_t EndOfLastWrite(int descriptor) { return lseek(descriptor, 0, SEEK_CUR); }

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
  const std::string_view text = line.text();
  {
    const SharedDescriptor::Use use(&shared_);
    const auto bytes = Look(use, line.time());
    if (bytes && !IsFull(*bytes, text.size())) {
      if (Write(use.number(), *bytes, text)) {
        return true;
      }
      if (errno != EFBIG) {
        return false;
      }
    }
  }
  return AppendToFreshlyOpened(text);
}

// The size of the open file, if it can be used and is the file at the path.
// Soon after a look at the path, asks only for the size.
std::optional<off_t> LogFile::Look(const SharedDescriptor::Use& use,
                                   LogTime now) {
  if (!use.IsGranted()) {
    return std::nullopt;
  }
  const auto age = now - look_time_.load(std::memory_order_relaxed);
  if (age >= age.zero() && age < kMaxLookAge) {
    const off_t bytes = lseek(use.number(), 0, SEEK_END);
    const off_t growth = bytes - look_bytes_.load(std::memory_order_relaxed);
    if (growth >= 0 && growth < kMaxLookGrowth) {
      return bytes;
    }
  }
  const auto state = StateAt(AT_FDCWD, path_.c_str());
  if (!state || !state->IsSameFile(use.state())) {
    return std::nullopt;
  }
  look_time_.store(now, std::memory_order_relaxed);
  look_bytes_.store(state->bytes, std::memory_order_relaxed);
  return state->bytes;
}

bool LogFile::IsFull(off_t bytes, std::size_t line_bytes) const {
  return bytes >= limit_ ||
         bytes > process_limit_.load(std::memory_order_relaxed) -
                     static_cast<off_t>(line_bytes);
}

bool LogFile::AppendToFreshlyOpened(std::string_view line) {
  process_limit_ = ProcessLimit();
  // No file can hold the line: a rotation would only remove old files.
  if (static_cast<off_t>(line.size()) > process_limit_) {
    errno = EFBIG;
    return false;
  }
  for (int full_files = 0;; ++full_files) {
    Descriptor file = OpenLog(path_.c_str());
    if (!file.IsOpen()) {
      return (errno == EMFILE || errno == ENFILE) && AppendToPresent(line);
    }
    const auto state = StateOf(file.number());
    if (!state) {
      return false;
    }
    if (!IsFull(state->bytes, line.size()) || full_files == kMaxFullFiles ||
        !rotation_.Rotate(*state)) {
      own_end_ = 0;
      const bool written = Write(file.number(), state->bytes, line);
      const int error = errno;
      shared_.Replace(std::move(file), *state);
      errno = error;
      return written;
    }
  }
}

// When no descriptor is free, the line goes to the open file, even to a full or
// renamed one. It does not go to a removed file, which is lost with its lines.
bool LogFile::AppendToPresent(std::string_view line) {
  const int error = errno;
  const SharedDescriptor::Use use(&shared_);
  if (use.IsGranted()) {
    const auto state = StateOf(use.number());
    if (state && state->names > 0) {
      return Write(use.number(), state->bytes, line);
    }
  }
  errno = error;
  return false;
}

bool LogFile::Write(int descriptor, off_t bytes, std::string_view line) {
  std::size_t written = 0;
  if (const off_t own = own_end_.load(std::memory_order_relaxed);
      bytes != own) {
    others_write_ = others_write_ || own != 0;
    if (EndsWithAFragment(descriptor, bytes) &&
        !WriteWhole(descriptor, kLineFeed, &written)) {
      return false;
    }
  }
  if (!WriteWhole(descriptor, line, &written)) {
    if (written > 0) {
      EndFragment(descriptor, line.substr(0, written));
    }
    return false;
  }
  if (others_write_.load(std::memory_order_relaxed)) {
    SeparateFromFragment(descriptor, bytes, line);
  }
  own_end_.store(bytes + static_cast<off_t>(line.size()),
                 std::memory_order_relaxed);
  return true;
}

// Sets errno, because a partial `write` does not.
void LogFile::EndFragment(int descriptor, std::string_view fragment) const {
  const off_t end = EndOfLastWrite(descriptor);
  if (Has(descriptor, end - static_cast<off_t>(fragment.size()), fragment)) {
    PutLineFeed(descriptor, end - 1);
  }
  errno = end >= ProcessLimit() ? EFBIG : ENOSPC;
}

// Ends a fragment that another process has left directly before `line`. The
// file was `bytes` long when the writer checked its end.
void LogFile::SeparateFromFragment(int descriptor, off_t bytes,
                                   std::string_view line) const {
  const off_t begin =
      EndOfLastWrite(descriptor) - static_cast<off_t>(line.size());
  if (begin > bytes && EndsInsideALine(descriptor, begin) &&
      Has(descriptor, begin, line)) {
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
    // If this fails at the file's end, the next line's writer ends the
    // fragment.
    [[maybe_unused]] const ssize_t result =
        pwrite(file.number(), kLineFeed.data(), kLineFeed.size(), offset);
  }
}
