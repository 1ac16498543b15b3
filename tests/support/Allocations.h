// Shows a test the allocations of its own program, which links Allocations.cpp.

#pragma once

#include <atomic>
#include <cstddef>

// Called before every `operator new`; one that throws std::bad_alloc refuses
// the memory. Null, as at first: allocations are not shown.
extern std::atomic<void (*)(std::size_t bytes)> g_on_allocation;
