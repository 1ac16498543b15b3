// Launchers that end without stopping their programs, and the commands of
// docs/operating.md that end the rest.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <string>

#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/ProcFs.h"
#include "tests/support/Sandbox.h"

namespace {

class OtherSignalsTest : public testing::TestWithParam<int> {};

TEST_P(OtherSignalsTest, EndTheLauncherAndLeaveItsPrograms) {
  REQUIRE_SANDBOX();
  LauncherRun run;
  run.StartItems(ItemsFile({Sleeper("a")}), [] {
    const rlimit none{};
    setrlimit(RLIMIT_CORE, &none);
    signal(GetParam(), SIG_DFL);
  });
  run.AwaitReady(1);
  const pid_t program = ChildrenOf(run.Process()).at(0);
  run.Signal(GetParam());
  const int status = run.Wait();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == GetParam()) << status;
  EXPECT_EQ(StatusField(program, "PPid"), "1");
  EXPECT_NE(StatusField(program, "State"), "Z");
  EXPECT_EQ(kill(-run.Process(), SIGTERM), 0);
  EXPECT_TRUE(Eventually([&] { return SessionOf(run.Process()).empty(); }));
}

INSTANTIATE_TEST_SUITE_P(Signals, OtherSignalsTest,
                         testing::Values(SIGINT, SIGHUP, SIGQUIT, SIGUSR1),
                         testing::PrintToStringParamName());

// A link that escaped the signal would go on as a chain without end.
TEST(ChainTest, EndsWithTheProcessGroup) {
  REQUIRE_SANDBOX();
  LauncherRun run;
  run.StartItems(R"({"0": {"name": "a", "program": "/no/such/program"}})");
  const pid_t launcher = run.Process();
  EXPECT_TRUE(Eventually([&] { return SessionOf(launcher).size() >= 10; }));
  EXPECT_EQ(kill(-launcher, SIGKILL), 0);
  run.Wait();
  EXPECT_TRUE(Eventually([&] { return SessionOf(launcher).empty(); }));
}

}  // namespace
