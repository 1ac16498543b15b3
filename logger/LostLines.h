// How many lines could not be written, and why.
//
// A process and its forked copies count together, in memory that they share:
// a copy may be gone before writing works again, and two must not report the
// same lines.

#pragma once

#include <atomic>
#include <cstdint>

// Safe from any thread and in a forked copy. Never destroyed.
class LostLines {
 public:
  LostLines() = default;
  LostLines(const LostLines&) = delete;
  LostLines& operator=(const LostLines&) = delete;

  // Gets the memory. Returns 0, else the errno. Goes before all else.
  int Open();

  void Add(std::uint64_t lines, int error);

  // The lines added since the last call, and the errno of the last of them.
  // Does not change errno.
  struct Loss {
    std::uint64_t lines;
    int error;
  };
  Loss Take();

 private:
  struct Shared {
    std::atomic<std::uint64_t> lines;
    std::atomic<int> error;
  };
  static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

  Shared* shared_ = nullptr;
};
