// The C library's heap: a seam to the platform, one source file for each. Every
// restart is a fork, which copies the launcher's mappings.

#pragma once

// Makes all threads allocate from one heap. A supervision thread allocates next
// to nothing, so heaps of their own would save no waiting, and each adds two
// mappings to every fork. Must be called before any thread is started.
void ShareHeap();

// Gives unused memory back to the system. Thread-safe.
void TrimHeap();
