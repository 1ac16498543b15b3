#include "logger/LostLines.h"

#include <sys/mman.h>

#include <cerrno>
#include <new>

int LostLines::Open() {
  void* const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANON, -1, 0);
  if (memory == MAP_FAILED) {
    return errno;
  }
  shared_ = ::new (memory) Shared{};
  return 0;
}

void LostLines::Add(std::uint64_t lines, int error) {
  shared_->error.store(error, std::memory_order_relaxed);
  shared_->lines.fetch_add(lines, std::memory_order_relaxed);
}

LostLines::Loss LostLines::Take() {
  // Nearly always there are none, and to look is cheaper than to take.
  if (shared_->lines.load(std::memory_order_relaxed) == 0) {
    return {0, 0};
  }
  return {shared_->lines.exchange(0, std::memory_order_relaxed),
          shared_->error.load(std::memory_order_relaxed)};
}
