// The numbers of the calling process and thread, as a line of the log shows
// them.

#pragma once

#include <sys/types.h>

#include <cstdint>

struct CallerIds {
  pid_t process;
  std::uint64_t thread;
};

// Must be called before GetCallerIds: has the numbers looked up again in forked
// children. Returns 0 or an errno value. Later calls do nothing.
int WatchForks();

// The caller's numbers. The thread that goes on in a forked child has the
// process's number there, on every platform, so that a reader of the log can
// recognise it. Takes no lock.
CallerIds GetCallerIds();

// The number by which the system's own tools know the calling thread. The only
// function here that differs by platform. Takes no lock.
std::uint64_t ThreadId();
