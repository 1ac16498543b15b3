// The stacks of the launcher's threads: a seam to the platform, one source file
// for each.
//
// A fork copies every mapping of the process, one after another. Where a stack
// comes with a guard page, it is two mappings; without one, neighbouring stacks
// are a single mapping, however many there are. So on Linux the stacks come
// without, and each thread guards its own, with a mark in the page table that
// needs no mapping of its own.

#pragma once

// Gives the threads that the process starts from now on the 512 KiB of stack
// that macOS gives them anyway, in place of 8 MiB, and leaves their guard to
// `GuardThreadStack`. To be called before any thread is started. A failure
// leaves the platform's own stacks.
void LimitThreadStacks();

// Makes an overrun of the calling thread's stack fault. Every thread begins
// with this call. Forked copies inherit the guard. Does nothing on a stack that
// came with one.
void GuardThreadStack();
