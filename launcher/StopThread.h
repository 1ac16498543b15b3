// The thread that carries out a SIGTERM.
//
// A signal handler may do next to nothing. Stopping the children inside it
// would deadlock when the signal interrupts an allocation, and would join a
// supervision thread to itself when the kernel picks that thread. So the
// handler only writes a byte into a pipe (the self-pipe trick), and this
// thread, which waits at the other end, does the work at once. Each byte is one
// SIGTERM.
//
// These are functions and not an object, because a forked child of the launcher
// may run exit-time destruction and has no such thread to join.

#pragma once

// Starts the thread, which calls `stop` once for each wake-up. Returns false,
// with nothing left open, when the system refuses a pipe or a thread. Must not
// be called while the thread runs.
bool StartStopThread(void (*stop)());

// Makes the thread call its function once more. Returns false when no thread
// has been started. Async-signal-safe; never blocks; may change `errno`.
bool WakeStopThread();

// Waits for a call in progress, drops further wake-ups and ends the thread. The
// pipe stays open, since a handler may be writing to it. Does nothing when no
// thread has been started. Must be called at most once for each start.
void EndStopThread();
