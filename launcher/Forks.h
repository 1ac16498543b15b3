// The forks that led to this process. Every function is async-signal-safe.

#pragma once

// The number of forks between the program's start and this process. A signal
// may reach a forked child before its fork is counted.
int ForkDepth();

// Records that this process is about to call `exit`. Children that it forks
// later inherit the record.
void AnnounceExit();

// Whether this process has called `AnnounceExit` or has inherited that record.
bool IsExiting();
