// The C library's heap. Each platform has its own source file.

#pragma once

// Makes all threads allocate from one heap. Must be called before any thread is
// started.
void ShareHeap();

// Gives unused memory back to the system. Thread-safe.
void TrimHeap();
