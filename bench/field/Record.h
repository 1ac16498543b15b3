// The results of a probe, in the file "record" of its item's folder. The probe
// and the measuring program both map the file, which is one page long. Times
// are in nanoseconds of CLOCK_MONOTONIC, which all processes of the machine
// share.

#pragma once

#include <cstdint>

// One life of a probe.
struct Life {
  std::int64_t first;      // The time at its first instruction,
  std::int64_t processor;  // the processor time it had used by then, in ns,
  std::int64_t last;       // the time right before its end; 0 until then,
  std::int64_t pid;        // and its process id.
};

constexpr int kLives = 127;

struct Record {
  std::int64_t
      lifetime;        // In ns, set by the measuring program. Below 0: no end.
  std::int64_t count;  // Lives begun. Life i is lives[i % kLives].
  std::int64_t unused[2];
  Life lives[kLives];
};

static_assert(sizeof(Record) == 4096);
