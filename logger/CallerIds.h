// Who logs: the calling process and thread.

#pragma once

#include <sys/types.h>

#include <cstdint>

struct CallerIds {
  pid_t process;
  std::uint64_t thread;
};

// To be called before GetCallerIds: has the numbers looked up again in forked
// copies. Returns 0, else the errno. Calls after the first do nothing.
int WatchForks();

// The caller's numbers. The thread that goes on in a forked copy has the
// process's number there, on every platform: readers of the log tell copies by
// it. Takes no lock.
CallerIds GetCallerIds();
