#include "logger/Rotation.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>

#include "logger/ThreadId.h"

namespace {

// How often the holder of the lock is given a chance to run.
constexpr int kChances = 20;

// How many of the files that were set aside one rotation gives numbers to. More
// than one, so that what was left behind is caught up with.
constexpr int kMostNumbered = 10;

constexpr std::string_view kAsideSuffix = ".full";

class DirectoryLock {
 public:
  explicit DirectoryLock(int directory) : directory_(directory) {}
  ~DirectoryLock() {
    if (taken_) {
      flock(directory_, LOCK_UN);
    }
  }
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

  // Takes the lock if it is free. False otherwise, with errno EWOULDBLOCK when
  // that is because another holds it.
  bool Take() {
    taken_ = taken_ || flock(directory_, LOCK_EX | LOCK_NB) == 0;
    return taken_;
  }

 private:
  const int directory_;
  bool taken_ = false;
};

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

int OpenDirectory(int base, const char* path) {
  return openat(base, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

}  // namespace

Rotation::Rotation(const std::string& directory, const std::string& name,
                   int old_files)
    : directory_(directory),
      name_(name),
      log_(name + ".log"),
      old_files_(old_files) {}

bool Rotation::Rotate(const FileState& full) const {
  const Descriptor directory(OpenDirectory(AT_FDCWD, directory_.c_str()));
  if (!directory.IsOpen()) {
    return false;
  }
  DirectoryLock lock(directory.number());
  for (int chance = 0; !lock.Take() && chance < kChances; ++chance) {
    if (errno != EWOULDBLOCK) {
      return false;
    }
    sched_yield();
    if (!IsAtPath(directory.number(), full)) {
      return true;
    }
  }
  if (!SetAside(directory.number(), full)) {
    return false;
  }
  if (lock.Take()) {
    NumberOldest(directory.number());
  }
  return true;
}

bool Rotation::IsAtPath(int directory, const FileState& file) const {
  const auto state = StateAt(directory, log_.c_str());
  return state && state->IsSameFile(file);
}

bool Rotation::SetAside(int directory, const FileState& full) const {
  if (!IsAtPath(directory, full)) {
    return true;
  }
  const FileName aside = NewNameAside();
  return renameat(directory, log_.c_str(), directory, aside.data()) == 0 ||
         errno == ENOENT;
}

// Others go on setting aside meanwhile, so that there need not be a last one.
void Rotation::NumberOldest(int directory) const {
  FileName aside;
  for (int numbered = 0;
       numbered < kMostNumbered && FindOldestAside(directory, &aside) &&
       Number(directory, aside);
       ++numbered) {
  }
}

bool Rotation::FindOldestAside(int directory, FileName* oldest) const {
  bool found = false;
  const int listed = OpenDirectory(directory, ".");
  const std::unique_ptr<DIR, CloseDirectory> list(fdopendir(listed));
  if (list == nullptr) {
    close(listed);
    return false;
  }
  while (const dirent* const entry = readdir(list.get())) {
    if (IsNameAside(entry->d_name) &&
        (!found || std::strcmp(entry->d_name, oldest->data()) < 0)) {
      std::strncpy(oldest->data(), entry->d_name, oldest->size());
      found = true;
    }
  }
  return found;
}

// Only the files up to the first number that is free have to move.
bool Rotation::Number(int directory, const FileName& aside) const {
  int last = 1;
  while (last < old_files_ && StateAt(directory, Numbered(last).data())) {
    ++last;
  }
  for (; last > 1; --last) {
    if (renameat(directory, Numbered(last - 1).data(), directory,
                 Numbered(last).data()) != 0) {
      return false;
    }
  }
  return renameat(directory, aside.data(), directory, Numbered(1).data()) == 0;
}

Rotation::FileName Rotation::Numbered(int number) const {
  FileName file;
  std::snprintf(file.data(), file.size(), "%s.%d.log", name_.c_str(), number);
  return file;
}

// Names sort by time.
Rotation::FileName Rotation::NewNameAside() const {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  FileName file;
  std::snprintf(file.data(), file.size(), "%s.%020lld-%llu%s", name_.c_str(),
                static_cast<long long>(std::chrono::nanoseconds(now).count()),
                static_cast<unsigned long long>(ThreadId()),
                kAsideSuffix.data());
  return file;
}

bool Rotation::IsNameAside(std::string_view file) const {
  if (!file.starts_with(name_) || !file.ends_with(kAsideSuffix)) {
    return false;
  }
  file.remove_prefix(name_.size());
  file.remove_suffix(kAsideSuffix.size());
  return file.starts_with('.') &&
         file.find_first_not_of("0123456789-", 1) == std::string_view::npos;
}
