// Lets a test see and refuse the allocations of its own program.

#pragma once

#include <atomic>
#include <cstddef>

// Called before every `operator new` unless null, as it is at first. Throws
// std::bad_alloc to refuse the memory.
extern std::atomic<void (*)(std::size_t bytes)> g_on_allocation;
