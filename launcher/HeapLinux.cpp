// Every restart is a fork, which copies the launcher's mappings. A supervision
// thread allocates next to nothing, so a heap of its own would save no waiting,
// and would add two mappings to every fork.

#include <malloc.h>

#include "launcher/Heap.h"

void ShareHeap() { mallopt(M_ARENA_MAX, 1); }

void TrimHeap() { malloc_trim(0); }
