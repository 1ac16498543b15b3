#include "logger/Rotation.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>

#include "logger/Format.h"
#include "logger/ThreadId.h"

namespace {

// The number of times that a thread yields to the holder of the lock.
constexpr int kChances = 20;

// After it has set the full file aside, a rotation numbers or removes files at
// most this many times. The limit is above 1, so that a backlog shrinks.
constexpr int kMaxChanges = 10;

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

  // Takes the lock if it is free. Returns whether this object holds it.
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

bool Exists(int directory, const char* name) {
  struct stat status;
  return fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

bool IsNumber(std::string_view text) {
  return !text.empty() &&
         text.find_first_not_of("0123456789") == std::string_view::npos;
}

enum class Kind { kNothing, kFile, kObstacle };

// A link counts as a file: it can be renamed and removed like one.
Kind KindOf(int directory, const char* name) {
  struct stat status;
  if (fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? Kind::kNothing : Kind::kObstacle;
  }
  return S_ISREG(status.st_mode) || S_ISLNK(status.st_mode) ? Kind::kFile
                                                            : Kind::kObstacle;
}

}  // namespace

Rotation::Rotation(const std::string& directory, const std::string& name,
                   int old_files)
    : directory_(directory),
      name_(name),
      log_(LogFileName(name)),
      old_files_(old_files) {}

bool Rotation::Rotate(const FileState& full) const {
  Descriptor opened =
      Open(AT_FDCWD, directory_.c_str(), O_RDONLY | O_DIRECTORY);
  const std::unique_ptr<DIR, CloseDirectory> listing(
      fdopendir(opened.number()));
  if (listing == nullptr) {
    return false;
  }
  opened.Release();
  const int directory = dirfd(listing.get());
  DirectoryLock lock(directory);
  for (int chance = 0; !lock.Take() && chance < kChances; ++chance) {
    sched_yield();
    if (!IsAtPath(directory, full)) {
      return true;
    }
  }
  if (!SetAside(directory, full)) {
    return false;
  }
  TidyUp(listing.get(), lock.Take());
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
  const FileName aside = NewAsideName(directory);
  if (renameat(directory, log_.c_str(), directory, aside.data()) != 0) {
    return errno == ENOENT;
  }
  const auto moved = StateAt(directory, aside.data());
  if (moved && !moved->IsSameFile(full)) {
    renameat(directory, aside.data(), directory,
             NewAsideName(directory).data());
  }
  return true;
}

// Removes the oldest files while there are too many. When `locked`, also
// numbers the files set aside.
void Rotation::TidyUp(DIR* listing, bool locked) const {
  const int directory = dirfd(listing);
  // The last file set aside that could not be numbered or removed.
  FileName skipped{};
  for (int changes = 0; changes < kMaxChanges;) {
    const OldFiles files = List(listing, skipped);
    const bool too_many = files.numbered + files.aside > old_files_ + 1;
    if (too_many && RemoveOldestNumbered(directory, files.highest) != 0) {
      ++changes;
      continue;
    }
    const FileName& oldest = files.oldest_aside;
    if (oldest[0] == '\0' || (!too_many && !locked)) {
      return;
    }
    if (too_many ? unlinkat(directory, oldest.data(), 0) == 0
                 : NumberFile(directory, oldest)) {
      ++changes;
    } else {
      skipped = oldest;
    }
  }
}

// Counts the old files, and finds the oldest file set aside whose name comes
// after `skipped`.
Rotation::OldFiles Rotation::List(DIR* listing, const FileName& skipped) const {
  OldFiles files;
  rewinddir(listing);
  while (const dirent* const entry = readdir(listing)) {
    if (KindOf(dirfd(listing), entry->d_name) == Kind::kFile) {
      Count(entry->d_name, skipped, &files);
    }
  }
  return files;
}

void Rotation::Count(const char* file, const FileName& skipped,
                     OldFiles* files) const {
  if (const int number = NumberOf(file); number > 0) {
    ++files->numbered;
    files->highest = std::max(files->highest, number);
  } else if (IsAsideName(file)) {
    ++files->aside;
    FileName& oldest = files->oldest_aside;
    if (std::strcmp(file, skipped.data()) > 0 &&
        (oldest[0] == '\0' || std::strcmp(file, oldest.data()) < 0)) {
      oldest = {};
      std::string_view(file).copy(oldest.data(), oldest.size() - 1);
    }
  }
}

// Moves the files below the first free number up by one, and gives `aside` the
// number that they leave free. A file that cannot be renamed keeps its number,
// and the others skip it.
bool Rotation::NumberFile(int directory, const FileName& aside) const {
  int free = MakeNumberFree(directory);
  if (free == 0) {
    return false;
  }
  for (int number = free - 1; number > 0; --number) {
    const FileName file = Numbered(number);
    if (KindOf(directory, file.data()) == Kind::kFile &&
        renameat(directory, file.data(), directory, Numbered(free).data()) ==
            0) {
      free = number;
    }
  }
  return renameat(directory, aside.data(), directory, Numbered(free).data()) ==
         0;
}

// Returns the lowest number whose name is free. If all are taken, removes the
// oldest file that can be removed and returns its number, or 0 if there is
// none.
int Rotation::MakeNumberFree(int directory) const {
  for (int number = 1; number <= old_files_; ++number) {
    if (KindOf(directory, Numbered(number).data()) == Kind::kNothing) {
      return number;
    }
  }
  return RemoveOldestNumbered(directory, old_files_);
}

// Removes one file: the first that can be removed, from the number `highest`
// down. Returns its number, or 0 if there is none. If another process has just
// removed the file `highest`, that counts as well: otherwise one file too many
// would be removed.
int Rotation::RemoveOldestNumbered(int directory, int highest) const {
  for (int number = highest; number > 0; --number) {
    const FileName file = Numbered(number);
    if (KindOf(directory, file.data()) != Kind::kObstacle &&
        (unlinkat(directory, file.data(), 0) == 0 ||
         (errno == ENOENT && number == highest))) {
      return number;
    }
  }
  return 0;
}

Rotation::FileName Rotation::Numbered(int number) const {
  FileName file;
  std::snprintf(file.data(), file.size(), "%s.%d%s", name_.c_str(), number,
                kLogSuffix.data());
  return file;
}

// The number in `file` if it is the name of a numbered file, 1 to `old_files_`;
// 0 for any other name.
int Rotation::NumberOf(std::string_view file) const {
  if (!file.starts_with(name_) || file.size() <= name_.size() + 1) {
    return 0;
  }
  int number = 0;
  std::from_chars(file.data() + name_.size() + 1, file.data() + file.size(),
                  number);
  const bool kept = number > 0 && number <= old_files_;
  return kept && file == Numbered(number).data() ? number : 0;
}

// Names sort by time. When the clock has stopped or was set back, a name may be
// taken; the next nanosecond gives another one.
Rotation::FileName Rotation::NewAsideName(int directory) const {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  long long time = std::chrono::nanoseconds(now).count();
  FileName file;
  do {
    std::snprintf(file.data(), file.size(), "%s.%020lld-%llu%s", name_.c_str(),
                  time, static_cast<unsigned long long>(ThreadId()),
                  kAsideSuffix.data());
    ++time;
  } while (Exists(directory, file.data()));
  return file;
}

bool Rotation::IsAsideName(std::string_view file) const {
  if (!file.starts_with(name_)) {
    return false;
  }
  file.remove_prefix(name_.size());
  if (!file.ends_with(kAsideSuffix)) {
    return false;
  }
  file.remove_suffix(kAsideSuffix.size());
  const std::size_t hyphen = file.find('-');
  return file.starts_with('.') && hyphen != std::string_view::npos &&
         IsNumber(file.substr(1, hyphen - 1)) &&
         IsNumber(file.substr(hyphen + 1));
}
