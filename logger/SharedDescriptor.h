// The descriptor that a logger's threads write to, all at once.
//
// After a rotation it has to become another one. A number must not be closed
// while a thread is about to write to it: opened again by some other thread for
// some other file, it would receive the line. A lock would do, but a forked
// copy could find it taken by a thread that the copy does not have, and wait
// for ever. dup2 would change the file behind the number, but on the platforms
// at hand it leaves the number open across execv until a second call.
//
// So the users are counted. Whoever would replace the descriptor does so only
// when there are none, and else does without: it has a descriptor of its own
// for the new file, writes its line there, and the next one tries again. Nobody
// ever waits. In a forked copy the count may say for ever that there are users,
// or that someone is replacing the descriptor; then the copy opens the file for
// every line that the old descriptor is no good for, which is slow but right.

#pragma once

#include <atomic>
#include <cstdint>

#include "logger/Descriptor.h"

// Safe from any thread and in a forked copy.
class SharedDescriptor {
 public:
  // One thread's use of the descriptor.
  class Use {
   public:
    explicit Use(SharedDescriptor* shared);
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    // False when the descriptor is just being replaced.
    bool IsGranted() const { return granted_; }
    int number() const { return shared_->descriptor_.number(); }
    // As of when the descriptor was put here.
    const FileState& state() const { return shared_->state_; }

   private:
    SharedDescriptor* const shared_;
    const bool granted_;
  };

  // Puts `descriptor`, for the file `state`, in place of the present one, which
  // is closed. False, with nothing done, while anyone uses that.
  bool Replace(Descriptor descriptor, const FileState& state);

 private:
  static constexpr std::uint32_t kReplacing = 1U << 31U;

  // The number of users, and kReplacing while the rest is being changed.
  std::atomic<std::uint32_t> users_ = 0;
  Descriptor descriptor_;
  FileState state_{};
};
