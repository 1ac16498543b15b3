// The stacks of the launcher's own threads: a seam to the platform, one source
// file for each.
//
// A fork copies every mapping of the process, one after another. A stack with a
// guard page is two mappings; without one, neighbouring stacks are a single
// mapping, however many there are. So on Linux our stacks come without, and
// each thread guards its own, with a mark in the page table that needs no
// mapping. Threads that others start, a logger library for one, are not
// concerned: the process's defaults stay as they are.

#pragma once

#include <pthread.h>

// pthread_create with a stack of `kSupervisionStackBytes`, which is also what
// macOS gives to threads. Returns 0, or an errno value with `thread` left
// alone. `body` must call `GuardThreadStack` first.
int CreateThread(pthread_t* thread, void* (*body)(void*), void* argument);

// Makes an overrun of the calling thread's stack fault. Forked children inherit
// the guard. Does nothing on a stack that came with one.
void GuardThreadStack();
