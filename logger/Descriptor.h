// Descriptors of the library's own, and the files behind them.
//
// The descriptors are never among 0 to 2, which the launcher closes and leaves
// to the programs it starts, and are closed when a program is executed.

#pragma once

#include <sys/stat.h>

#include <optional>
#include <utility>

// Which file it is, whatever its name, and how many bytes it holds.
struct FileState {
  dev_t device;
  ino_t inode;
  off_t bytes;

  bool IsSameFile(const FileState& other) const {
    return inode == other.inode && device == other.device;
  }
};

// Of the file at `path`; a relative path begins in the open `directory`.
// Nothing when there is none.
std::optional<FileState> StateAt(int directory, const char* path);

// Owns a descriptor, and closes it.
class Descriptor {
 public:
  // Owns nothing.
  Descriptor() = default;
  // Owns `number` or, when that is a standard stream's, another descriptor for
  // the same file; nothing when `number` is -1. Keeps errno.
  explicit Descriptor(int number);
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept
      : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }

  bool IsOpen() const { return number_ >= 0; }
  int number() const { return number_; }
  // Nothing when no descriptor is open; errno stays as it is then.
  std::optional<FileState> State() const;

 private:
  int number_ = -1;
};

// Opens `path` for appending and reading, and makes the file with mode 0600
// when it is missing. When that fails the result is not open and errno set.
Descriptor OpenForAppending(const char* path);
