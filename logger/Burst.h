// Spares the look at the path while lines come one right after the other.
//
// Before a line is written, the file behind the descriptor has to be the one at
// the path, and not full. To ask the system costs more than to write the line.
// In a burst, that is while a thread writes a line right after another, nobody
// can tell whether a file was renamed just before or just after a line, so one
// look is good for a while. Whoever did something else in between, such as to
// remove the file, finds the next line in a new one.
//
// A file cannot become full in that while unless it was nearly so before. Then
// its size is looked at for every line, which alone costs much less. So no file
// outgrows its limit by more than the lines that are being written.

#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>

// Safe from any thread and in a forked copy.
class Burst {
 public:
  using Clock = std::chrono::system_clock;

  // What a line needs before it is written.
  enum class Look { kAtNothing, kAtSize, kAtPath };

  Look Needed(Clock::time_point now) const;

  // The path was looked at: it was the right file, with so much room in bytes
  // until its limit. `now` is from before.
  void Looked(Clock::time_point now, off_t room);

  // A line is written.
  void Wrote();

  // The next line needs a look at the path.
  void Stop();

 private:
  // Between the lines of a burst: less than any system call takes that changes
  // a directory.
  static constexpr std::chrono::nanoseconds kPause{500};

  // How long a look is good for, and more than can be written to one file in
  // that time: the system does that a line at a time.
  static constexpr std::chrono::microseconds kLookLasts{100};
  static constexpr off_t kMostBytes = off_t{512} * 1024;

  // When the last look was, in nanoseconds, cut to an even number; odd when it
  // found the file nearly full. Two variables could be of two different looks.
  std::atomic<std::int64_t> look_ = 0;

  std::atomic<Clock::time_point> written_{};
};
