#include "tests/support/LocalStatics.h"

#include <dlfcn.h>

#include <atomic>

#ifdef __GLIBCXX__

namespace {

std::atomic<int> g_made = 0;

}  // namespace

int LocalStaticsMade() { return g_made; }

// Replaces the runtime's own function, which compiled code calls before it
// initialises a static.
extern "C" __attribute__((visibility("default"))) int __cxa_guard_acquire(
    void* guard) {
  ++g_made;
  using Acquire = int(void*);
  return reinterpret_cast<Acquire*>(dlsym(RTLD_NEXT, "__cxa_guard_acquire"))(
      guard);
}

#endif
