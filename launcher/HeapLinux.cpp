#include <malloc.h>

#include "launcher/Heap.h"

void ShareHeap() { mallopt(M_ARENA_MAX, 1); }

void TrimHeap() { malloc_trim(0); }
