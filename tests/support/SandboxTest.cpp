#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/Sandbox.h"

namespace {

TEST(Sandbox, IsItsOwnSessionInItsOwnPidNamespace) {
  REQUIRE_SANDBOX();
  EXPECT_EQ(getppid(), 1);
  EXPECT_EQ(getsid(0), getpid());
  EXPECT_EQ(getpgrp(), getpid());
}

}  // namespace
