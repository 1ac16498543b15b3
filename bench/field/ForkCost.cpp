// The cost of a fork in a process with many threads, by the number of threads
// and the kind of their stacks. fork_cost <threads> <stack> prints two medians
// in microseconds: the time of the call, and the processor time that the forked
// child has used when its own code begins.

#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <string_view>
#include <vector>

#include "launcher/ThreadStacks.h"

namespace {

constexpr int kForks = 101;
constexpr std::size_t kSmallStackBytes = std::size_t{512} * 1024;

double Microseconds(clockid_t clock) {
  timespec time;
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) * 1e6 +
         static_cast<double>(time.tv_nsec) / 1e3;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

bool g_guard_stacks = false;

void* Wait(void*) {
  if (g_guard_stacks) {
    GuardThreadStack();
  }
  for (;;) {
    pause();
  }
}

void StartThreads(int count, std::string_view stack) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  if (stack != "default") {
    pthread_attr_setstacksize(&attributes, kSmallStackBytes);
  }
  if (stack == "unguarded" || stack == "marked") {
    pthread_attr_setguardsize(&attributes, 0);
  }
  g_guard_stacks = stack == "marked";
  for (int i = 0; i < count; ++i) {
    pthread_t thread;
    pthread_create(&thread, &attributes, Wait, nullptr);
  }
}

}  // namespace

int main(int, char** argv) {
  StartThreads(std::atoi(argv[1]), argv[2]);
  // Shared, so that the children can report.
  auto* const child_time =
      static_cast<double*>(mmap(nullptr, sizeof(double), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  std::vector<double> calls;
  std::vector<double> child_times;
  for (int i = 0; i < kForks; ++i) {
    const double begin = Microseconds(CLOCK_MONOTONIC);
    const pid_t child = fork();
    if (child == 0) {
      *child_time = Microseconds(CLOCK_PROCESS_CPUTIME_ID);
      _exit(0);
    }
    calls.push_back(Microseconds(CLOCK_MONOTONIC) - begin);
    waitpid(child, nullptr, 0);
    child_times.push_back(*child_time);
  }
  std::cout << Median(calls) << ' ' << Median(child_times) << '\n';
}
