#include "logger/Descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr mode_t kFileMode = 0600;
constexpr mode_t kPermissions = 07777;

void CloseKeepingErrno(int number) {
  const int error = errno;
  close(number);
  errno = error;
}

int AboveStandardStreams(int number) {
  if (number < 0 || number > STDERR_FILENO) {
    return number;
  }
  const int above = fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  CloseKeepingErrno(number);
  return above;
}

FileState ToFileState(const struct stat& status) {
  return {status.st_dev, status.st_ino, status.st_size, status.st_nlink};
}

bool IsTrustedLink(const char* path) {
  struct stat status;
  return fstatat(AT_FDCWD, path, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISLNK(status.st_mode) &&
         (status.st_uid == geteuid() || status.st_uid == 0);
}

bool IsLog(const Descriptor& file) {
  struct stat status;
  if (fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode) ||
      status.st_uid != geteuid()) {
    return false;
  }
  if ((status.st_mode & kPermissions & ~kFileMode) != 0) {
    fchmod(file.number(), kFileMode);
  }
  return true;
}

}  // namespace

std::optional<FileState> StateAt(int directory, const char* path) {
  struct stat status;
  if (fstatat(directory, path, &status, 0) != 0) {
    return std::nullopt;
  }
  return ToFileState(status);
}

std::optional<FileState> StateOf(int number) {
  struct stat status;
  if (fstat(number, &status) != 0) {
    return std::nullopt;
  }
  return ToFileState(status);
}

Descriptor::Descriptor(int number) : number_(AboveStandardStreams(number)) {}

Descriptor::~Descriptor() {
  if (IsOpen()) {
    CloseKeepingErrno(number_);
  }
}

Descriptor Open(int directory, const char* path, int flags) {
  int number = -1;
  do {
    number = openat(directory, path, flags | O_CLOEXEC, kFileMode);
  } while (number < 0 && errno == EINTR);
  return Descriptor(number);
}

// O_NONBLOCK has no effect on a regular file. Without it, the caller could hang
// if someone has put a device in the log's place.
Descriptor OpenLog(const char* path) {
  constexpr int kFlags = O_RDWR | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY;
  Descriptor file = Open(AT_FDCWD, path, kFlags | O_NOFOLLOW);
  if (!file.IsOpen() && errno == ELOOP) {
    if (!IsTrustedLink(path)) {
      errno = EPERM;
      return {};
    }
    file = Open(AT_FDCWD, path, kFlags);
  }
  if (file.IsOpen() && !IsLog(file)) {
    errno = EPERM;
    return {};
  }
  return file;
}

// A thread that arrives during a replacement is counted briefly; this is
// harmless.
SharedDescriptor::Use::Use(SharedDescriptor* shared)
    : shared_(shared),
      granted_((shared->users_.fetch_add(1, std::memory_order_acquire) &
                kReplacing) == 0) {}

SharedDescriptor::Use::~Use() {
  shared_->users_.fetch_sub(1, std::memory_order_release);
}

bool SharedDescriptor::Replace(Descriptor descriptor, const FileState& state) {
  std::uint32_t no_users = 0;
  if (!users_.compare_exchange_strong(no_users, kReplacing,
                                      std::memory_order_acquire)) {
    return false;
  }
  descriptor_ = std::move(descriptor);
  state_ = state;
  users_.fetch_sub(kReplacing, std::memory_order_release);
  return true;
}
