// Runs code that may never return, in a forked child with limits.

#pragma once

#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/Poll.h"

enum class Outcome { kReturned, kDidNotReturn, kDied };

// Runs `body` in a forked child and returns how that ended. A child that uses
// 100 ms of processor time, or outlasts `Eventually`, is killed and counts as
// not returning. With more time, a string that grows forever could fill the
// machine's memory.
template <class Body>
Outcome RunBounded(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    constexpr itimerval kProcessorTime{{0, 0}, {0, 100'000}};
    constexpr rlimit kNoCore{0, 0};
    setitimer(ITIMER_VIRTUAL, &kProcessorTime, nullptr);
    setrlimit(RLIMIT_CORE, &kNoCore);
    body();
    _exit(0);
  }
  int status = 0;
  if (!Eventually([&] { return waitpid(child, &status, WNOHANG) != 0; })) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return Outcome::kDidNotReturn;
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    return Outcome::kReturned;
  }
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGVTALRM
             ? Outcome::kDidNotReturn
             : Outcome::kDied;
}
