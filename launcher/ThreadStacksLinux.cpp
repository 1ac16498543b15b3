// A fork copies every mapping of the process, one after another. A stack with a
// guard page is two mappings; without one, neighbouring stacks are a single
// mapping, however many there are. So our stacks are made without one, and each
// thread guards its own with a mark in the page table that needs no mapping.

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>

#include "launcher/Items.h"
#include "launcher/ThreadStacks.h"

namespace {

// MADV_GUARD_INSTALL, which older headers of the C library lack.
constexpr int kGuardInstall = 102;

// Kernels before 6.13 refuse the mark; the guard is then a mapping of its own.
void GuardPage(void* page, std::size_t bytes) {
  if (madvise(page, bytes, kGuardInstall) != 0) {
    mprotect(page, bytes, PROT_NONE);
  }
}

}  // namespace

int CreateThread(pthread_t* thread, void* (*body)(void*), void* argument) {
  pthread_attr_t attributes;
  if (const int error = pthread_attr_init(&attributes); error != 0) {
    return error;
  }
  pthread_attr_setstacksize(&attributes, kSupervisionStackBytes);
  pthread_attr_setguardsize(&attributes, 0);
  const int error = pthread_create(thread, &attributes, body, argument);
  pthread_attr_destroy(&attributes);
  return error;
}

void GuardThreadStack() {
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
    return;
  }
  void* lowest = nullptr;
  std::size_t stack_bytes = 0;
  std::size_t guard_bytes = 0;
  if (pthread_attr_getguardsize(&attributes, &guard_bytes) == 0 &&
      guard_bytes == 0 &&
      pthread_attr_getstack(&attributes, &lowest, &stack_bytes) == 0) {
    GuardPage(lowest, static_cast<std::size_t>(getpagesize()));
  }
  pthread_attr_destroy(&attributes);
}
