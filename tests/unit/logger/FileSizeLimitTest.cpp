#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "logger/FileSizeLimit.h"
#include "tests/support/Coverage.h"

namespace {

// The wait status of a forked copy that runs `body`.
template <typename Body>
int StatusOfCopy(Body body) {
  const pid_t copy = fork();
  if (copy == 0) {
    body();
    KeepCoverage();
    _exit(0);
  }
  int status = -1;
  waitpid(copy, &status, 0);
  return status;
}

TEST(FileSizeLimit, NoLongerEndsTheProcess) {
  const int status = StatusOfCopy([] { raise(SIGXFSZ); });
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(StatusOfCopy([] {
              SurviveFileSizeLimit();
              raise(SIGXFSZ);
            }),
            0);
}

TEST(FileSizeLimit, IsAsItWasInAProgramThatIsExecuted) {
  const int status = StatusOfCopy([] {
    SurviveFileSizeLimit();
    execl("/bin/sh", "sh", "-c", "kill -s XFSZ $$", nullptr);
  });
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGXFSZ);
}

TEST(FileSizeLimit, LeavesOthersDispositionsAlone) {
  EXPECT_EQ(StatusOfCopy([] {
              std::signal(SIGXFSZ, SIG_IGN);
              SurviveFileSizeLimit();
              KeepCoverage();
              _exit(std::signal(SIGXFSZ, SIG_DFL) == SIG_IGN ? 0 : 1);
            }),
            0);
}

TEST(FileSizeLimit, LeavesOthersHandlersAlone) {
  EXPECT_EQ(StatusOfCopy([] {
              struct sigaction theirs {};
              theirs.sa_flags = SA_SIGINFO;
              theirs.sa_sigaction = [](int, siginfo_t*, void*) {};
              sigaction(SIGXFSZ, &theirs, nullptr);
              SurviveFileSizeLimit();
              struct sigaction present {};
              sigaction(SIGXFSZ, nullptr, &present);
              KeepCoverage();
              _exit(present.sa_sigaction == theirs.sa_sigaction ? 0 : 1);
            }),
            0);
}

}  // namespace
