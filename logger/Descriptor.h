// The library's own descriptors and the files they refer to.
//
// The library never keeps descriptor 0, 1 or 2. The launcher closes these
// three, so a file that is opened later could get one of their numbers, and
// text for a standard stream would then go into the log. `execv` closes all
// descriptors that the library keeps.

#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <utility>

// A file's identity (independent of its name), size and number of hard links.
struct FileState {
  dev_t device;
  ino_t inode;
  off_t bytes;
  nlink_t names;

  bool IsSameFile(const FileState& other) const {
    return inode == other.inode && device == other.device;
  }
};

// The state of the file at `path`, which may be relative to the open
// `directory`. Returns nullopt, with errno set, when there is none.
std::optional<FileState> StateAt(int directory, const char* path);

// The state of the file that the descriptor `number` refers to. Returns
// nullopt, with errno set, when the descriptor is not open.
std::optional<FileState> StateOf(int number);

// Owns a descriptor, and closes it. Closing keeps errno.
class Descriptor {
 public:
  Descriptor() = default;
  // Owns `number`. If that is 0, 1 or 2, closes it and owns a duplicate above 2
  // instead, or nothing if no descriptor is free. Owns nothing if it is -1.
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
  // Gives the descriptor up without closing it.
  void Release() { number_ = -1; }

 private:
  int number_ = -1;
};

// Opens `path`, which may be relative to the open `directory`; tries again when
// a signal interrupts it. On failure the result is not open and errno is set.
Descriptor Open(int directory, const char* path, int flags);

// Opens the log at `path` for appending and reading, and makes it, with mode
// 0600, when it is missing. Accepts only a regular file of the effective user,
// and changes a wider mode to 0600. Follows a symbolic link that the effective
// user or root has made. Refuses anything else. On failure the result is not
// open, and errno is EPERM or the system's own value.
Descriptor OpenLog(const char* path);

// The descriptor that all threads of a logger write to at the same time.
//
// A rotation replaces the descriptor. The old number must not be closed while a
// thread is about to write to it: another thread might open some other file
// under that number, which would receive the line. A lock would prevent that,
// but a forked child could find it held by a thread that does not exist in the
// child, and wait forever. dup2 would put the new file under the old number,
// but without close-on-exec until a second call; a program started in between
// would inherit the log. (macOS has no dup3.)
//
// So this class counts the users, and replaces the descriptor only while there
// are none. Otherwise the thread with the new descriptor writes its line there
// and closes it, and the next thread tries again: no thread ever waits. In a
// forked child the count may show forever that there are users, or that a
// replacement is under way. The child then opens the file for every line that
// the old descriptor cannot take, which is slow but correct.
//
// Safe from any thread and in a forked child.
class SharedDescriptor {
 public:
  // One thread's use of the descriptor.
  class Use {
   public:
    explicit Use(SharedDescriptor* shared);
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    // False while the descriptor is being replaced.
    bool IsGranted() const { return granted_; }
    int number() const { return shared_->descriptor_.number(); }
    // The file's state when `Replace` put the descriptor here.
    const FileState& state() const { return shared_->state_; }

   private:
    SharedDescriptor* const shared_;
    const bool granted_;
  };

  // Takes `descriptor`, which refers to a file with this `state`, and closes
  // the current one. While the current one is used or being replaced, closes
  // `descriptor` instead and returns false.
  bool Replace(Descriptor descriptor, const FileState& state);

 private:
  static constexpr std::uint32_t kReplacing = 1U << 31U;

  // The number of users, and kReplacing while the other members change.
  std::atomic<std::uint32_t> users_ = 0;
  Descriptor descriptor_;
  FileState state_{};
};
