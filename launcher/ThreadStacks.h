// The stacks of the launcher's own threads. Each platform has its own source
// file. Threads that other code starts, for example a logger library, keep the
// process's defaults.

#pragma once

#include <pthread.h>

// pthread_create with a stack of `kSupervisionStackBytes`, the size that macOS
// gives to threads anyway. Returns 0, or an errno value and leaves `thread`
// alone. `body` must call `GuardThreadStack` first.
int CreateThread(pthread_t* thread, void* (*body)(void*), void* argument);

// Makes an overrun of the calling thread's stack fault. Forked children inherit
// the guard. Does nothing on a stack that already has a guard.
void GuardThreadStack();
