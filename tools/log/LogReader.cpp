#include "tools/log/LogReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_ino == b.st_ino && a.st_dev == b.st_dev;
}

}  // namespace

bool EventFilter::Passes(const LogEvent& event) const {
  if (since && event.time < *since) {
    return false;
  }
  switch (event.kind) {
    case LogEventKind::kStart:
    case LogEventKind::kEnd:
    case LogEventKind::kForkFailed:
    case LogEventKind::kNoProgram:
      return names.empty() || names.contains(Unescaped(event.name));
    default:
      return true;
  }
}

LogReader::LogReader(const std::string& path, EventFilter filter,
                     EventSink on_event, std::function<void()> on_unreadable)
    : path_(path),
      filter_(std::move(filter)),
      on_event_(std::move(on_event)),
      on_unreadable_(std::move(on_unreadable)) {}

LogReader::~LogReader() {
  for (const File& file : files_) {
    close(file.descriptor);
  }
}

// The latest first: a rotation meanwhile gives a file that is open already
// another name, and none is missed.
int LogReader::Open() {
  std::vector<std::string> paths = FindLogFiles(path_);
  if (paths.empty()) {
    return ENOENT;
  }
  std::ranges::reverse(paths);
  for (const std::string& path : paths) {
    const int error = OpenFile(path);
    if (error != 0 && error != ENOENT) {
      return error;
    }
  }
  std::ranges::reverse(files_);
  return 0;
}

int LogReader::OpenFile(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status;
  if (descriptor < 0) {
    return errno;
  }
  if (fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode)) {
    close(descriptor);
    return EISDIR;
  }
  if (IsOpenAlready(descriptor)) {
    close(descriptor);
    return 0;
  }
  total_bytes_ += static_cast<std::uint64_t>(status.st_size);
  files_.push_back({path, descriptor});
  return 0;
}

bool LogReader::IsOpenAlready(int descriptor) const {
  struct stat status;
  fstat(descriptor, &status);
  return std::ranges::any_of(files_, [&](const File& file) {
    struct stat other;
    return fstat(file.descriptor, &other) == 0 && IsSameFile(status, other);
  });
}

std::vector<std::string> LogReader::Files() const {
  std::vector<std::string> paths;
  for (const File& file : files_) {
    paths.push_back(file.path);
  }
  return paths;
}

void LogReader::ReadAll(const std::function<void(std::uint64_t)>& progress) {
  std::uint64_t done = 0;
  const auto take = [this](std::string_view line) { Take(line); };
  for (const File& file : files_) {
    lines_.ReadAll(file.descriptor, take, [&](std::uint64_t bytes) {
      done += bytes;
      progress(done);
    });
    if (file.descriptor != files_.back().descriptor) {
      lines_.Finish(take);
    }
  }
}

void LogReader::ReadNew() {
  const auto take = [this](std::string_view line) { Take(line); };
  if (!files_.empty()) {
    lines_.ReadAll(files_.back().descriptor, take);
  }
  struct stat at_path;
  struct stat opened;
  if (stat(path_.c_str(), &at_path) != 0 ||
      (!files_.empty() && fstat(files_.back().descriptor, &opened) == 0 &&
       IsSameFile(at_path, opened))) {
    return;
  }
  // Rotated: what was written last to the old file comes first.
  if (!files_.empty()) {
    lines_.ReadAll(files_.back().descriptor, take);
    lines_.Finish(take);
    close(files_.back().descriptor);
    files_.pop_back();
  }
  if (OpenFile(path_) == 0 && !files_.empty()) {
    lines_.ReadAll(files_.back().descriptor, take);
  }
}

void LogReader::Take(std::string_view line) {
  const auto event = parser_.Parse(line);
  if (!event) {
    on_unreadable_();
  } else if (filter_.Passes(*event)) {
    on_event_(*event);
  }
}
