#include "logger/LogFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace {

constexpr std::string_view kLineFeed = "\n";

// Files full to the limit, one after the other, before a line goes to one
// regardless. Others' lines have filled them all while this one was under way.
constexpr int kMaxFullFiles = 100;

bool WriteWhole(int descriptor, std::string_view text, std::size_t* written) {
  ssize_t result = 0;
  do {
    result = write(descriptor, text.data(), text.size());
  } while (result < 0 && errno == EINTR);
  *written = static_cast<std::size_t>(std::max<ssize_t>(result, 0));
  return *written == text.size();
}

bool EndsInsideALine(const Descriptor& file, off_t bytes) {
  char last = '\n';
  return bytes > 0 && pread(file.number(), &last, 1, bytes - 1) == 1 &&
         last != '\n';
}

// A process that was killed while it wrote, or a power failure, leaves such an
// end for good. A line that is just being written looks the same: the system
// shows its beginning before its end.
bool WasTorn(const Descriptor& file, off_t bytes) {
  if (!EndsInsideALine(file, bytes)) {
    return false;
  }
  // Only its side effect counts: it waits for the `write` that is under way.
  lseek(file.number(), 0, SEEK_HOLE);
  const auto state = file.State();
  return state && state->bytes == bytes && EndsInsideALine(file, bytes);
}

}  // namespace

LogFile::LogFile(const std::string& directory, const std::string& name,
                 const LogLimits& limits)
    : path_(directory + "/" + name + ".log"),
      limit_(limits.file_bytes),
      rotation_(directory, name, limits.old_files) {}

int LogFile::Open() {
  Descriptor file = OpenForAppending(path_.c_str());
  const auto state = file.State();
  if (!state) {
    return errno;
  }
  torn_ = WasTorn(file, state->bytes);
  shared_.Replace(std::move(file), *state);
  return 0;
}

bool LogFile::Append(std::string_view line, Burst::Clock::time_point now) {
  {
    const SharedDescriptor::Use use(&shared_);
    if (use.IsGranted() && IsFit(use, now)) {
      return Write(use.number(), line);
    }
  }
  return AppendToFreshlyOpened(line);
}

bool LogFile::IsFit(const SharedDescriptor::Use& use,
                    Burst::Clock::time_point now) {
  switch (burst_.Needed(now)) {
    case Burst::Look::kAtNothing:
      return true;
    case Burst::Look::kAtSize:
      return lseek(use.number(), 0, SEEK_END) < limit_;
    case Burst::Look::kAtPath:
      break;
  }
  const auto state = StateAt(AT_FDCWD, path_.c_str());
  if (!state || !state->IsSameFile(use.state()) || state->bytes >= limit_) {
    return false;
  }
  burst_.Looked(now, limit_ - state->bytes);
  return true;
}

bool LogFile::AppendToFreshlyOpened(std::string_view line) {
  for (int full_files = 0;; ++full_files) {
    Descriptor file = OpenForAppending(path_.c_str());
    const auto state = file.State();
    if (!state) {
      return false;
    }
    if (state->bytes < limit_ || full_files == kMaxFullFiles ||
        !rotation_.Rotate(*state)) {
      const bool written = Write(file.number(), line);
      if (shared_.Replace(std::move(file), *state)) {
        burst_.Stop();
      }
      return written;
    }
  }
}

bool LogFile::Write(int descriptor, std::string_view line) {
  std::size_t written = 0;
  if (torn_.load(std::memory_order_relaxed)) {
    if (!WriteWhole(descriptor, kLineFeed, &written)) {
      return false;
    }
    torn_ = false;
  }
  if (WriteWhole(descriptor, line, &written)) {
    burst_.Wrote();
    return true;
  }
  if (written > 0) {
    torn_ = !EndFragment(line.substr(0, written));
    errno = ENOSPC;
  }
  return false;
}

// Others' lines may follow the fragment by now; then it is too late. The file
// is opened once more because on some systems `pwrite` appends, too, when the
// descriptor is in append mode.
bool LogFile::EndFragment(std::string_view fragment) const {
  constexpr std::size_t kCompared = 64;
  std::array<char, kCompared> end;
  const Descriptor file(open(path_.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
  const auto state = file.State();
  fragment.remove_prefix(fragment.size() -
                         std::min(fragment.size(), kCompared));
  const auto length = static_cast<ssize_t>(fragment.size());
  return state &&
         pread(file.number(), end.data(), fragment.size(),
               state->bytes - length) == length &&
         std::equal(fragment.begin(), fragment.end(), end.begin()) &&
         pwrite(file.number(), kLineFeed.data(), 1, state->bytes - 1) == 1;
}
