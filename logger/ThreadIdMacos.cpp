#include <pthread.h>

#include "logger/ThreadId.h"

std::uint64_t ThreadId() {
  std::uint64_t id = 0;
  pthread_threadid_np(nullptr, &id);
  return id;
}
