// The ids of the calling process and thread, as the log shows them.

#pragma once

#include <sys/types.h>

#include <cstdint>

struct CallerIds {
  pid_t process;
  std::uint64_t thread;
};

// Installs a handler that gives each forked child its own ids. Must be
// called before GetCallerIds. Returns 0 or an errno value. Later calls do
// nothing.
int WatchForks();

// The caller's ids. In the first thread of a forked child they are equal on
// every platform. So a reader of the log distinguishes a child's line from a
// supervision thread's, whose ids always differ. (On Linux the launcher's main
// thread has equal ids, too.) Takes no lock.
CallerIds GetCallerIds();

// The id that the system's own tools show for the calling thread. Only this
// function differs by platform. Takes no lock.
std::uint64_t ThreadId();
