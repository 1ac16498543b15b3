// The sandbox that every test program runs in.
//
// The launcher may send SIGKILL to its process group or to every process on the
// machine, and leaves chains of processes behind. The tests provoke all of that
// for real: in a PID namespace, a mount namespace and a session of their own,
// with a time limit. Whatever a test starts dies with it.

#pragma once

#include <chrono>

namespace sandbox {

// Goes on in the sandbox: returns true in a new process there, whose exit
// status becomes that of the calling process (128 + the signal's number for a
// death by signal, 124 after `limit`). Returns false in the calling process
// when the system allows no such namespaces. Must be called before the first
// thread is started.
bool Enter(std::chrono::seconds limit);

// Whether this process runs in the sandbox.
bool IsInside();

}  // namespace sandbox

// Skips the running test where there is no sandbox. The first statement of
// every test that runs a real launcher or a real ChildProc.
#define REQUIRE_SANDBOX()                                                   \
  if (!sandbox::IsInside()) {                                               \
    GTEST_SKIP() << "needs PID and mount namespaces and /proc: "            \
                    "Linux as root, or a kernel that grants them to users"; \
  }                                                                         \
  static_assert(true)
