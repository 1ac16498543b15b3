// What a process knows about the forks that led to it.
//
// A forked child of the launcher is not the launcher: it has none of its
// threads, and its signals are its own. It cannot tell by the process id, since
// ids are reused and a chain of forked children outlives the launcher. So
// handlers that run at every fork keep count.

#pragma once

// How many forks lie between the program's start and this process: 0 in the
// process that was started, 1 in its forked children, 2 in theirs.
// Async-signal-safe, but a signal may reach a forked child before the child is
// counted.
int ForkDepth();

// Announces that this process is about to call `exit`. Forked children inherit
// the announcement.
void AnnounceExit();

// Whether this process, or the one that it was forked from by then, is inside
// `exit` or about to be. Async-signal-safe.
bool IsExiting();
