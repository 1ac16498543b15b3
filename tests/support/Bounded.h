// Running what may never return: in a forked child, with limits.

#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/Poll.h"

enum class Outcome { kReturned, kDidNotReturn, kDied };

// Runs `body` in a forked child and tells how that ended. A child that has used
// a second of processor time, or that still waits after `Eventually`'s
// patience, is ended and counts as one that does not return. Nothing that
// `body` changes is seen outside the child.
template <class Body>
Outcome RunBounded(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    constexpr rlimit kProcessorSeconds{1, 2};
    constexpr rlimit kNoCore{0, 0};
    setrlimit(RLIMIT_CPU, &kProcessorSeconds);
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
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU
             ? Outcome::kDidNotReturn
             : Outcome::kDied;
}
