// Runs code in a forked child, because it changes or ends its process.

#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/Coverage.h"
#include "tests/support/Poll.h"

// Runs `body` in a forked child. Returns the child's exit status, which is the
// result of `body`, or minus the number of the signal that ended the child. A
// child that does not end is killed and fails the test.
template <class Body>
int InForkedChild(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    const int status = body();
    KeepCoverage();
    _exit(status);
  }
  int status = 0;
  if (!Eventually([&] { return waitpid(child, &status, WNOHANG) == child; })) {
    ADD_FAILURE() << "the forked child does not end";
    // Not the one that records the launcher's calls: later tests read them.
    const auto real_kill =
        reinterpret_cast<decltype(&kill)>(dlsym(RTLD_NEXT, "kill"));
    real_kill(child, SIGKILL);
    waitpid(child, &status, 0);
  }
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}
