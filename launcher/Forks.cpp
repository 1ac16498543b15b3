// A forked child of the launcher is not the launcher: it has none of its
// threads, and its signals are its own. Its process id does not show that,
// since ids are reused and a chain of forked children outlives the launcher. So
// a handler counts every fork.

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
