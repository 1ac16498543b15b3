#include "tests/support/Allocations.h"

#include <cstdlib>
#include <new>

constinit std::atomic<void (*)(std::size_t bytes)> g_on_allocation = nullptr;

void* operator new(std::size_t bytes) {
  if (void (*const on_allocation)(std::size_t) = g_on_allocation) {
    on_allocation(bytes);
  }
  void* const memory = std::malloc(bytes);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
