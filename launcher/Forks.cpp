#include "launcher/Forks.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<int> g_depth = 0;
std::atomic<bool> g_exiting = false;

thread_local sigset_t t_mask;

// A signal that reaches the child before it is counted would find it to be the
// launcher, so none is delivered until then.
void BlockSignals() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &t_mask);
}

void RestoreSignals() { pthread_sigmask(SIG_SETMASK, &t_mask, nullptr); }

void CountAndRestoreSignals() {
  ++g_depth;
  RestoreSignals();
}

// Before `main`, so that no fork is missed.
[[maybe_unused]] const bool g_counts = [] {
  if (pthread_atfork(BlockSignals, RestoreSignals, CountAndRestoreSignals) !=
      0) {
    std::abort();  // Out of memory.
  }
  return true;
}();

}  // namespace

int ForkDepth() { return g_depth; }

void AnnounceExit() { g_exiting = true; }

bool IsExiting() { return g_exiting; }
