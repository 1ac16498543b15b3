// Running in a forked copy what changes the whole process.

#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/Coverage.h"
#include "tests/support/Poll.h"

// Runs `body` in a forked copy and gives its exit status, or minus the number
// of the signal that ended it. A copy that does not end is killed.
template <class Body>
int InCopy(Body body) {
  const pid_t copy = fork();
  if (copy == 0) {
    const int status = body();
    KeepCoverage();
    _exit(status);
  }
  int status = 0;
  if (!Eventually([&] { return waitpid(copy, &status, WNOHANG) == copy; })) {
    ADD_FAILURE() << "the copy does not end";
    kill(copy, SIGKILL);
    waitpid(copy, &status, 0);
  }
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}
