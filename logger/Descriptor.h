// The library's own descriptors and the files they refer to.
//
// The descriptors are never among 0 to 2, which the launcher closes and leaves
// to the programs it starts, and they are closed when a program is executed.

#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <utility>

// A file's identity, whatever its name, with its size and number of names.
struct FileState {
  dev_t device;
  ino_t inode;
  off_t bytes;
  nlink_t names;

  bool IsSameFile(const FileState& other) const {
    return inode == other.inode && device == other.device;
  }
};

// The file at `path`, which may be relative to the open `directory`. Nothing
// when there is none; errno says why.
std::optional<FileState> StateAt(int directory, const char* path);

// The file that the descriptor `number` refers to. Nothing when that is not
// open.
std::optional<FileState> StateOf(int number);

// Owns a descriptor, and closes it. Closing keeps errno.
class Descriptor {
 public:
  Descriptor() = default;
  // Owns `number` or, when that is a standard stream's, another descriptor for
  // the same file. Owns nothing when `number` is -1.
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
// a signal interrupts it. When that fails the result is not open and errno set.
Descriptor Open(int directory, const char* path, int flags);

// Opens the log at `path` for appending and reading, and makes it, with mode
// 0600, when it is missing. Only a regular file of the effective user is a log;
// one with a wider mode gets mode 0600. A symbolic link is followed if the
// effective user or root has made it. Anything else is refused with EPERM. When
// that or the opening fails the result is not open and errno set.
Descriptor OpenLog(const char* path);

// The descriptor that all threads of a logger write to at the same time.
//
// After a rotation another one takes its place. A number must not be closed
// while a thread is about to write to it: another thread might open some other
// file under that number, which would receive the line. A lock would do, but a
// forked child could find it held by a thread that does not exist in the child,
// and wait for ever. dup2 would exchange the file under the number, but on our
// platforms it leaves the number open across execv until a second call.
//
// So the users are counted. The descriptor is replaced only while no thread
// uses it. Otherwise the thread with the new descriptor writes its line there
// and closes it, and the next thread tries again: no thread ever waits. In a
// forked child the count may say for ever that there are users, or that a
// replacement is under way. The child then opens the file for every line that
// the old descriptor cannot take, which is slow but right.
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
    // The file's state when the descriptor was put here.
    const FileState& state() const { return shared_->state_; }

   private:
    SharedDescriptor* const shared_;
    const bool granted_;
  };

  // Puts `descriptor`, for the file `state`, in place of the present one, which
  // is closed. While that is in use, does nothing and returns false.
  bool Replace(Descriptor descriptor, const FileState& state);

 private:
  static constexpr std::uint32_t kReplacing = 1U << 31U;

  // The number of users, and kReplacing while the rest is being changed.
  std::atomic<std::uint32_t> users_ = 0;
  Descriptor descriptor_;
  FileState state_{};
};
