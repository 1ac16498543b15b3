#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "logger/LostLines.h"

namespace {

class LostLinesTest : public testing::Test {
 protected:
  LostLinesTest() { EXPECT_EQ(lost_.Open(), 0); }

  LostLines lost_;
};

TEST_F(LostLinesTest, AreNoneAtFirst) { EXPECT_EQ(lost_.Take().lines, 0U); }

TEST_F(LostLinesTest, AreTakenOnce) {
  lost_.Add(2, ENOSPC);
  lost_.Add(1, EIO);
  const LostLines::Loss loss = lost_.Take();
  EXPECT_EQ(loss.lines, 3U);
  EXPECT_EQ(loss.error, EIO);
  EXPECT_EQ(lost_.Take().lines, 0U);
}

TEST_F(LostLinesTest, AreCountedTogetherWithForkedCopies) {
  lost_.Add(1, EIO);
  const pid_t copy = fork();
  if (copy == 0) {
    lost_.Add(2, ENOSPC);
    _exit(0);
  }
  waitpid(copy, nullptr, 0);
  EXPECT_EQ(lost_.Take().lines, 3U);
}

}  // namespace
