// What a fork costs in a process with many threads, by the number of threads
// and by what their stacks look like. fork_cost <threads> <stack> prints the
// median time of the call in microseconds, then the median processor time that
// the copy had used when it came to itself.

#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <iostream>
#include <string_view>
#include <vector>

namespace {

constexpr int kForks = 101;
constexpr std::size_t kSmallStackBytes = 512 * 1024;

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

// Makes the lowest page of the calling thread's stack fault, without a mapping
// of its own.
void GuardOwnStack() {
  constexpr int kGuardInstall = 102;  // MADV_GUARD_INSTALL, Linux 6.13.
  pthread_attr_t attributes;
  pthread_getattr_np(pthread_self(), &attributes);
  void* lowest = nullptr;
  std::size_t size = 0;
  pthread_attr_getstack(&attributes, &lowest, &size);
  if (madvise(lowest, 4096, kGuardInstall) != 0) {
    std::perror("madvise");
  }
  pthread_attr_destroy(&attributes);
}

bool g_guard_own_stack = false;

void* Wait(void*) {
  if (g_guard_own_stack) {
    GuardOwnStack();
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
  g_guard_own_stack = stack == "marked";
  for (int i = 0; i < count; ++i) {
    pthread_t thread;
    pthread_create(&thread, &attributes, Wait, nullptr);
  }
}

}  // namespace

int main(int, char** argv) {
  StartThreads(std::atoi(argv[1]), argv[2]);
  // Shared, so that the copies can report.
  auto* const copy =
      static_cast<double*>(mmap(nullptr, sizeof(double), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  std::vector<double> calls;
  std::vector<double> copies;
  for (int i = 0; i < kForks; ++i) {
    const double begin = Microseconds(CLOCK_MONOTONIC);
    const pid_t child = fork();
    if (child == 0) {
      *copy = Microseconds(CLOCK_PROCESS_CPUTIME_ID);
      _exit(0);
    }
    calls.push_back(Microseconds(CLOCK_MONOTONIC) - begin);
    waitpid(child, nullptr, 0);
    copies.push_back(*copy);
  }
  std::cout << Median(calls) << ' ' << Median(copies) << '\n';
}
