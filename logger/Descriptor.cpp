#include "logger/Descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr mode_t kFileMode = 0600;

int AboveStandardStreams(int number) {
  if (number < 0 || number > STDERR_FILENO) {
    return number;
  }
  const int above = fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(number);
  errno = error;
  return above;
}

FileState ToFileState(const struct stat& status) {
  return {status.st_dev, status.st_ino, status.st_size};
}

}  // namespace

std::optional<FileState> StateAt(int directory, const char* path) {
  struct stat status;
  if (fstatat(directory, path, &status, 0) != 0) {
    return std::nullopt;
  }
  return ToFileState(status);
}

Descriptor::Descriptor(int number) : number_(AboveStandardStreams(number)) {}

Descriptor::~Descriptor() {
  if (IsOpen()) {
    close(number_);
  }
}

std::optional<FileState> Descriptor::State() const {
  struct stat status;
  if (!IsOpen() || fstat(number_, &status) != 0) {
    return std::nullopt;
  }
  return ToFileState(status);
}

// O_NONBLOCK means nothing to a file; a pipe that someone has put in its place
// would hold up the caller without it.
Descriptor OpenForAppending(const char* path) {
  constexpr int kFlags = O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK;
  return Descriptor(open(path, kFlags, kFileMode));
}
