// The C library's heap: a seam to the platform.

#pragma once

// Makes all threads allocate from one heap. Must be called before any thread is
// started.
void ShareHeap();

// Gives unused memory back to the system. Thread-safe.
void TrimHeap();
