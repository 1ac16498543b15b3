#include "tools/log/LogReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <utility>

#include "logger/Format.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kPieceBytes = std::size_t{1024} * 1024;
constexpr std::size_t kMaxLineBytes = 16 * kPieceBytes;

// The number of an old log of `stem`; 0 for any other file name.
int OldLogNumber(const std::string& name, const std::string& stem) {
  int number = 0;
  if (name.size() > stem.size()) {
    const char* const digits = name.data() + stem.size() + 1;
    std::from_chars(digits, name.data() + name.size(), number);
  }
  return number > 0 && name == OldLogFileName(stem, number) ? number : 0;
}

[[noreturn]] void Fail(const std::string& path, const std::string& why) {
  throw std::runtime_error(path + ": " + why);
}

bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_ino == b.st_ino && a.st_dev == b.st_dev;
}

// Not for a pipe, which can be read only once.
bool IsCompressed(int descriptor) {
  constexpr std::string_view kGzipMark = "\x1f\x8b";
  std::array<char, kGzipMark.size()> start{};
  return pread(descriptor, start.data(), start.size(), 0) ==
             static_cast<ssize_t>(start.size()) &&
         std::string_view(start.data(), start.size()) == kGzipMark;
}

}  // namespace

std::vector<std::string> FindLogFiles(const std::string& path) {
  const fs::path log(path);
  const std::string stem = log.stem();
  std::map<std::pair<int, std::string>, std::string> files;  // by age
  std::error_code unreadable;
  if (log.extension() == kLogSuffix) {
    const fs::path directory = log.has_parent_path() ? log.parent_path() : ".";
    for (const auto& entry : fs::directory_iterator(directory, unreadable)) {
      const std::string name = entry.path().filename();
      const int number = OldLogNumber(name, stem);
      if (number > 0 ||
          (name.starts_with(stem + ".") && name.ends_with(kAsideSuffix))) {
        files[{-number, name}] = entry.path();
      }
    }
  }
  if (fs::exists(log, unreadable)) {
    files[{1, ""}] = path;
  }
  std::vector<std::string> paths;
  paths.reserve(files.size());
  for (const auto& [age, file] : files) {
    paths.push_back(file);
  }
  return paths;
}

LogReader::LogReader(std::string path, LineSink on_line)
    : path_(std::move(path)), on_line_(std::move(on_line)) {}

LogReader::~LogReader() {
  for (const File& file : files_) {
    close(file.descriptor);
  }
}

// The latest first: a rotation meanwhile gives a file that is open already
// another name, and none is missed.
bool LogReader::Open() {
  const std::vector<std::string> paths = FindLogFiles(path_);
  std::for_each(paths.rbegin(), paths.rend(),
                [this](const std::string& path) { OpenFile(path); });
  std::ranges::reverse(files_);
  return !files_.empty();
}

// False if it does not exist or was opened before.
bool LogReader::OpenFile(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0 && errno != ENOENT) {
    Fail(path, std::strerror(errno));
  }
  struct stat status;
  if (descriptor < 0 || fstat(descriptor, &status) != 0 ||
      std::ranges::any_of(files_, [&](const File& file) {
        return IsSameFile(file.status, status);
      })) {
    close(descriptor);
    return false;
  }
  files_.push_back({path, descriptor, status});
  if (S_ISDIR(status.st_mode)) {
    Fail(path, std::strerror(EISDIR));
  }
  if (IsCompressed(descriptor)) {
    Fail(path, "compressed; try: gunzip -c FILE | launcher-log /dev/stdin");
  }
  return true;
}

std::vector<std::string> LogReader::Files() const {
  std::vector<std::string> paths;
  for (const File& file : files_) {
    paths.push_back(file.path);
  }
  return paths;
}

void LogReader::ReadAll() {
  for (const File& file : files_) {
    GiveLastLine();
    ReadToEnd(file);
  }
}

void LogReader::ReadNew() {
  if (!files_.empty()) {
    ReadToEnd(files_.back());
  }
  struct stat at_path;
  if (stat(path_.c_str(), &at_path) != 0 ||
      (!files_.empty() && IsSameFile(at_path, files_.back().status))) {
    return;
  }
  // Rotated: the last lines of the old file come first.
  if (!files_.empty()) {
    ReadToEnd(files_.back());
    GiveLastLine();
    close(files_.back().descriptor);
    files_.pop_back();
  }
  if (OpenFile(path_)) {
    ReadToEnd(files_.back());
  }
}

void LogReader::ReadToEnd(const File& file) {
  std::string piece(kPieceBytes, '\0');
  ssize_t count = 0;
  while ((count = read(file.descriptor, piece.data(), piece.size())) != 0) {
    if (count > 0) {
      GiveLines({piece.data(), static_cast<std::size_t>(count)});
    } else if (errno != EINTR) {
      Fail(file.path, std::strerror(errno));
    }
  }
}

void LogReader::GiveLines(std::string_view piece) {
  std::size_t end = 0;
  while ((end = piece.find('\n')) != std::string_view::npos) {
    line_ += piece.substr(0, end);
    on_line_(line_);
    line_.clear();
    piece.remove_prefix(end + 1);
  }
  line_ += piece;
  if (line_.size() > kMaxLineBytes) {
    line_.clear();
  }
}

void LogReader::GiveLastLine() {
  if (!line_.empty()) {
    on_line_(line_);
    line_.clear();
  }
}
