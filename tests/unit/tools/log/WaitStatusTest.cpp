#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <map>

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
}

TEST(WaitStatus, NamesEverySignal) {
  const std::map<int, std::string> names{
      {SIGHUP, "SIGHUP"},   {SIGINT, "SIGINT"},       {SIGQUIT, "SIGQUIT"},
      {SIGILL, "SIGILL"},   {SIGTRAP, "SIGTRAP"},     {SIGABRT, "SIGABRT"},
      {SIGBUS, "SIGBUS"},   {SIGFPE, "SIGFPE"},       {SIGKILL, "SIGKILL"},
      {SIGUSR1, "SIGUSR1"}, {SIGSEGV, "SIGSEGV"},     {SIGUSR2, "SIGUSR2"},
      {SIGPIPE, "SIGPIPE"}, {SIGALRM, "SIGALRM"},     {SIGTERM, "SIGTERM"},
      {SIGXCPU, "SIGXCPU"}, {SIGVTALRM, "SIGVTALRM"}, {SIGXFSZ, "SIGXFSZ"},
      {SIGPROF, "SIGPROF"}, {SIGIO, "SIGIO"},         {SIGSYS, "SIGSYS"}};
  for (int number = 1; number < 0x7F; ++number) {
    const auto name = names.find(number);
    EXPECT_EQ(SignalName(number), name == names.end()
                                      ? "signal " + std::to_string(number)
                                      : name->second);
  }
}
