// The stacks of the launcher's own threads: a seam to the platform. The threads
// of others, a logger library for one, keep the process's defaults.

#pragma once

#include <pthread.h>

// pthread_create with a stack of `kSupervisionStackBytes`, which is also what
// macOS gives to threads. Returns 0, or an errno value with `thread` left
// alone. `body` must call `GuardThreadStack` first.
int CreateThread(pthread_t* thread, void* (*body)(void*), void* argument);

// Makes an overrun of the calling thread's stack fault. Forked children inherit
// the guard. Does nothing on a stack that came with one.
void GuardThreadStack();
