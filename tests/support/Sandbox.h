// The sandbox that every test program runs in.
//
// The launcher may send SIGKILL to its process group or to every process on the
// machine, and leaves chains of processes behind. All of that is required, so
// the tests provoke it for real: in a PID namespace, a mount namespace and a
// session of their own, with a time limit. Whatever a test starts dies with it.

#pragma once

#include <chrono>

namespace sandbox {

// Goes on in the sandbox: returns true in a new process there, whose exit
// status becomes that of the calling process (128 + the signal's number for a
// death by signal, 124 past `limit`). Returns false in the calling process when
// the system has no such namespaces. To be called before any thread is started.
bool Enter(std::chrono::seconds limit);

// Whether this process runs in the sandbox.
bool IsInside();

}  // namespace sandbox

// Skips the running test where there is no sandbox. Stands first in every test
// that runs a real launcher or a real ChildProc.
#define REQUIRE_SANDBOX()                                        \
  if (!sandbox::IsInside()) {                                    \
    GTEST_SKIP() << "needs PID and mount namespaces of its own"; \
  }                                                              \
  static_assert(true)
