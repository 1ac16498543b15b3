// The thread that carries out a SIGTERM.

#pragma once

// Starts the thread, which calls `stop` once for each wake-up. Returns false,
// with nothing left open, when the system refuses a pipe or a thread. Must not
// be called while the thread runs.
bool StartStopThread(void (*stop)());

// Makes the thread call its function once more. Returns false when no thread
// has been started. Async-signal-safe; never blocks; may change `errno`.
bool WakeStopThread();

// Waits for a call in progress, drops further wake-ups and ends the thread.
// Must be called at most once for each start; does nothing when no thread has
// been started.
void EndStopThread();
