// The C library's heap: a seam to the platform, one source file for each. What
// the launcher holds counts once for every item, and a fork copies its mappings
// for every restart.

#pragma once

// Makes all threads allocate from one heap. A supervision thread allocates next
// to nothing, so heaps of their own would save no waiting, and each is two
// mappings more for every fork. To be called before any thread is started.
void ShareHeap();

// Gives unused memory back to the system. Thread-safe.
void TrimHeap();
