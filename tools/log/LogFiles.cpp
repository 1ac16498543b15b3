#include "tools/log/LogFiles.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <map>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kPieceBytes = std::size_t{1024} * 1024;
constexpr std::size_t kMaxLineBytes = 16 * kPieceBytes;

// The number in "<stem>.<number><extension>"; 0 for any other name.
int Number(const std::string& name, const std::string& stem,
           const std::string& extension) {
  if (!name.starts_with(stem + ".") || !name.ends_with(extension) ||
      name.size() <= stem.size() + 1 + extension.size()) {
    return 0;
  }
  const char* const begin = name.data() + stem.size() + 1;
  const char* const end = name.data() + name.size() - extension.size();
  int number = 0;
  const auto [stop, error] = std::from_chars(begin, end, number);
  return error == std::errc() && stop == end ? number : 0;
}

}  // namespace

std::vector<std::string> FindLogFiles(const std::string& path) {
  const fs::path log(path);
  const std::string stem = log.stem();
  std::map<int, std::string, std::greater<>> numbered;
  std::vector<std::string> aside;
  std::error_code unreadable;
  const fs::path directory = log.has_parent_path() ? log.parent_path() : ".";
  for (const auto& entry : fs::directory_iterator(directory, unreadable)) {
    const std::string name = entry.path().filename();
    if (const int number = Number(name, stem, log.extension()); number > 0) {
      numbered[number] = entry.path();
    } else if (name.starts_with(stem + ".") && name.ends_with(".full")) {
      aside.push_back(entry.path());
    }
  }
  std::ranges::sort(aside);
  std::vector<std::string> files;
  files.reserve(numbered.size() + aside.size() + 1);
  for (const auto& [number, file] : numbered) {
    files.push_back(file);
  }
  files.insert(files.end(), aside.begin(), aside.end());
  if (fs::exists(log, unreadable)) {
    files.push_back(path);
  }
  return files;
}

std::uint64_t LineReader::ReadAll(
    int descriptor, const Sink& sink,
    const std::function<void(std::uint64_t)>& piece) {
  std::uint64_t total = 0;
  for (;;) {
    const std::size_t kept = buffer_.size();
    buffer_.resize(kept + kPieceBytes);
    const ssize_t count = read(descriptor, buffer_.data() + kept, kPieceBytes);
    buffer_.resize(kept + (count > 0 ? static_cast<std::size_t>(count) : 0));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return total;
    }
    total += static_cast<std::uint64_t>(count);
    GiveLines(sink);
    if (piece) {
      piece(static_cast<std::uint64_t>(count));
    }
  }
}

void LineReader::GiveLines(const Sink& sink) {
  std::string_view rest = buffer_;
  std::size_t end = 0;
  while ((end = rest.find('\n')) != std::string_view::npos) {
    sink(rest.substr(0, end));
    rest.remove_prefix(end + 1);
  }
  const std::size_t kept = rest.size() > kMaxLineBytes ? 0 : rest.size();
  buffer_.erase(0, buffer_.size() - kept);
}

void LineReader::Finish(const Sink& sink) {
  if (!buffer_.empty()) {
    sink(buffer_);
    buffer_.clear();
  }
}
