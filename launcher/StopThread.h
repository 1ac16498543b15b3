// The thread that carries out a SIGTERM.
//
// A signal handler may do next to nothing: stopping the children inside it
// would deadlock when the signal interrupts an allocation, and would join a
// supervision thread to itself when the kernel picks that thread. So the
// handler only writes a byte into a pipe (the self-pipe trick), and this
// thread, which waits at the other end, does the work at once. Each byte is one
// SIGTERM.
//
// There are functions and no object on purpose: a forked copy of the launcher
// may run exit-time destruction, and there must be nothing to join.

#pragma once

// Starts the thread; it calls `stop` once for each wake-up. False, with nothing
// left behind, when the system refuses a pipe or a thread. Not for use while
// the thread runs.
bool StartStopThread(void (*stop)());

// Makes the thread call its function once more. Async-signal-safe, never
// blocks; does nothing while there is no thread. May change `errno`.
void WakeStopThread();

// Lets a call in progress end, drops further wake-ups and ends the thread. The
// pipe stays, since a handler may be writing to it. Does nothing when no thread
// has been started. To be called once.
void EndStopThread();
