#include "logger/ThreadId.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace {

// Two more system calls for every line would cost half as much as the `write`.
// So both ids are kept: the process's until a fork, the thread's while the
// process's id stays the same.

// 0 until WatchForks has been called.
constinit std::atomic<pid_t> g_process = 0;

constinit thread_local CallerIds t_ids{0, 0};

void CacheChildIds() {
  const pid_t process = getpid();
  g_process.store(process, std::memory_order_relaxed);
  t_ids = {process, static_cast<std::uint64_t>(process)};
}

}  // namespace

int WatchForks() {
  if (g_process != 0) {
    return 0;
  }
  const int error = pthread_atfork(nullptr, nullptr, CacheChildIds);
  if (error == 0) {
    g_process = getpid();
  }
  return error;
}

CallerIds GetCallerIds() {
  const pid_t process = g_process.load(std::memory_order_relaxed);
  if (t_ids.process != process) {
    t_ids = {process, ThreadId()};
  }
  return t_ids;
}
