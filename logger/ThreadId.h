// The calling thread's number: a seam to the platform, one source file for
// each.

#pragma once

#include <cstdint>

// The number by which the system's own tools know the calling thread. A forked
// copy's thread has another one than the thread it is a copy of. Takes no lock.
std::uint64_t ThreadId();
