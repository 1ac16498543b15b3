#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include "tests/support/Sandbox.h"

namespace {

TEST(Sandbox, IsItsOwnSessionInItsOwnPidNamespace) {
  REQUIRE_SANDBOX();
  EXPECT_EQ(getppid(), 1);
  EXPECT_EQ(getsid(0), getpid());
  EXPECT_EQ(getpgrp(), getpid());
}

// A file that is open before the test starts, as one that ctest leaves open.
class LedgerTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { file_ = mkstemp(path_); }
  static void TearDownTestSuite() {
    unlink(path_);
    close(file_);
  }

  static inline char path_[] = "/tmp/launcher-test-XXXXXX";
  static inline int file_ = -1;
};

TEST_F(LedgerTest, AllowsAnotherProcessToRemoveAnOpenFile) {
  REQUIRE_SANDBOX();
  EXPECT_EQ(unlink(path_), 0);
}

}  // namespace
