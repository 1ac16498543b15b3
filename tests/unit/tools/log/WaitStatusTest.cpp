#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include "tools/log/WaitStatus.h"

TEST(WaitStatus, DecodesEveryExitCode) {
  for (int code = 0; code < 256; ++code) {
    const WaitStatus status(code << 8);
    EXPECT_EQ(status.Text(), "exit " + std::to_string(code));
    EXPECT_EQ(status.Cause(),
              code == 0 ? EndCause::kSuccess : EndCause::kFailure);
  }
}

TEST(WaitStatus, AgreesWithTheSystem) {
  for (int word = 0; word < 65536; ++word) {
    const WaitStatus status(word);
    if (WIFEXITED(word)) {
      EXPECT_EQ(status.code, WEXITSTATUS(word));
      EXPECT_EQ(status.signal, 0);
    } else if (WIFSIGNALED(word)) {
      EXPECT_EQ(status.signal, WTERMSIG(word));
      EXPECT_EQ(status.core, WCOREDUMP(word) != 0);
    }
  }
}

TEST(WaitStatus, NamesSignals) {
  EXPECT_EQ(WaitStatus(SIGKILL).Text(), "SIGKILL");
  EXPECT_EQ(WaitStatus(SIGKILL).Cause(), EndCause::kKilled);
  EXPECT_EQ(WaitStatus(SIGTERM).Text(), "SIGTERM");
  EXPECT_EQ(WaitStatus(SIGTERM).Cause(), EndCause::kSignal);
  EXPECT_EQ(WaitStatus(SIGSEGV | 128).Text(), "SIGSEGV core");
  EXPECT_EQ(WaitStatus(SIGSEGV | 128).Cause(), EndCause::kCore);
  EXPECT_EQ(WaitStatus(99).Text(), "signal 99");
}
