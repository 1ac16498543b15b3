// The numbers of the calling process and thread, as the log shows them.

#pragma once

#include <sys/types.h>

#include <cstdint>

struct CallerIds {
  pid_t process;
  std::uint64_t thread;
};

// Installs a handler that gives each forked child its own numbers. Must be
// called before GetCallerIds. Returns 0 or an errno value. Later calls do
// nothing.
int WatchForks();

// The caller's numbers. In a forked child, the number of the thread that called
// `fork` equals the process's on every platform, so that a reader of the log
// can recognise the child. Takes no lock.
CallerIds GetCallerIds();

// The number that the system's own tools show for the calling thread. Only this
// function differs by platform. Takes no lock.
std::uint64_t ThreadId();
