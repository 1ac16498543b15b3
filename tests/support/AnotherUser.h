// Tests that need a second user.

#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include "tests/support/ForkedChild.h"

constexpr uid_t kAnotherUser = 65534;

// Whether a process here can become another user. Root can, but not the root of
// a user namespace that has one user.
inline bool CanBecomeAnotherUser() {
  return InForkedChild([] { return setuid(kAnotherUser) == 0 ? 0 : 1; }) == 0;
}

// Skips the running test if the process cannot do that.
#define REQUIRE_ANOTHER_USER()                                \
  if (!CanBecomeAnotherUser()) {                              \
    GTEST_SKIP() << "needs the right to become another user"; \
  }                                                           \
  static_assert(true)
