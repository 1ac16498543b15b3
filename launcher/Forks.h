// The forks that led to this process. Every function is async-signal-safe.

#pragma once

// How many forks lie between the program's start and this process. A signal may
// reach a forked child before the child is counted.
int ForkDepth();

// Says that this process is about to call `exit`. The children that it forks
// from then on inherit that.
void AnnounceExit();

// Whether this process, or the one that it was forked from by then, is inside
// `exit` or about to be.
bool IsExiting();
