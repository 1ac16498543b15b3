#include "launcher/Forks.h"

#include <pthread.h>

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<int> g_depth = 0;
std::atomic<bool> g_exiting = false;

// Before `main`, so that no fork is missed.
[[maybe_unused]] const bool g_counts = [] {
  if (pthread_atfork(nullptr, nullptr, [] { ++g_depth; }) != 0) {
    std::abort();  // Out of memory.
  }
  return true;
}();

}  // namespace

int ForkDepth() { return g_depth; }

void AnnounceExit() { g_exiting = true; }

bool IsExiting() { return g_exiting; }
