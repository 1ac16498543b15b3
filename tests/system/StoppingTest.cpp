// The real launcher, from a SIGTERM to its exit status.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iterator>
#include <memory>
#include <thread>
#include <unordered_map>

#include "launcher/Items.h"
#include "launcher/Messages.h"
#include "tests/support/Files.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"

namespace {

using namespace std::chrono_literals;

class StoppingTest : public testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_SANDBOX();
    run_ = std::make_unique<LauncherRun>();
  }

  std::unique_ptr<LauncherRun> run_;
};

TEST_F(StoppingTest, SigtermKillsAllChildrenAndEndsWithOne) {
  run_->StartItems(ItemsFile({Sleeper("a"), Sleeper("b"), Sleeper("c")}));
  const std::vector<pid_t> children = run_->AwaitChildren(3);
  run_->ExpectStops();
  for (const pid_t child : children) {
    EXPECT_EQ(kill(child, 0), -1);
  }
  for (const char* const name : {"a", "b", "c"}) {
    const auto ends = run_->Ends(name);
    ASSERT_EQ(ends.size(), 1U);
    EXPECT_EQ(ends[0].status, SIGKILL);
  }
}

// The kernel picks the thread, which may be one that the stop waits for.
TEST_F(StoppingTest, ManySigtermsOnAnyThreadsStopItLikeOne) {
  run_->StartItems(ItemsFile({Sleeper("a"), Sleeper("b")}));
  run_->AwaitChildren(2);
  for (const pid_t thread : ThreadsOf(run_->Process())) {
    if (thread != run_->Process()) {
      SignalThread(run_->Process(), thread, SIGTERM);
    }
  }
  run_->ExpectStops();
  EXPECT_EQ(run_->Ends().size(), 2U);
}

TEST_F(StoppingTest, StopsTheChildrenOneAfterAnotherInTheMapsOrder) {
  constexpr int kItems = 8;
  std::unordered_map<std::string, int> map;
  std::vector<std::string> items;
  for (int i = 0; i < kItems; ++i) {
    const std::string name = "item" + std::to_string(i);
    map[name] = i;
    items.push_back(Sleeper(name));
  }
  run_->StartItems(ItemsFile(items));
  run_->AwaitReady(kItems);
  run_->ExpectStops();
  const auto ends = run_->Ends();
  ASSERT_EQ(ends.size(), kItems);
  std::size_t i = 0;
  for (const auto& [name, number] : map) {
    EXPECT_EQ(ends[i].name, name);
    if (i > 0) {
      EXPECT_GE(ends[i].time - ends[i - 1].time, kRestartPause);
    }
    ++i;
  }
}

TEST_F(StoppingTest, DoesNotRememberASigtermBeforeTheWait) {
  const std::string fifo = run_->Root() / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  run_->Start({"alpha", fifo});
  const int writer = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
  run_->AwaitReading();
  run_->Signal(SIGTERM);
  run_->AwaitReading();
  const std::string items = ItemsFile({Sleeper("a")});
  ASSERT_EQ(write(writer, items.data(), items.size()), std::ssize(items));
  close(writer);
  run_->AwaitChildren(1);
  std::this_thread::sleep_for(200ms);
  EXPECT_TRUE(run_->IsRunning());
  EXPECT_EQ(ChildrenOf(run_->Process()).size(), 1U);
  run_->ExpectStops();
}

TEST_F(StoppingTest, ASigtermDuringTheExitChangesNothing) {
  std::vector<std::string> items{Sleeper("a"), Sleeper("b"), Sleeper("c")};
  items.insert(items.end(), 300, "null");
  items.emplace_back("5");
  // Stopping an item that has not forked kills the launcher's group, by design.
  constexpr int kMaxTries = 200;
  int status = SIGKILL;
  for (int tries = 0; status == SIGKILL && tries < kMaxTries; ++tries) {
    run_ = std::make_unique<LauncherRun>();
    run_->StartItems(ItemsFile(items));
    EXPECT_TRUE(Eventually([&] {
      return run_->HasLogged(kParseFailedMessage) || !run_->IsRunning();
    }));
    EXPECT_TRUE(Eventually([&] {
      run_->Signal(SIGTERM);
      return !run_->IsRunning();
    }));
    status = run_->Wait();
  }
  EXPECT_EQ(status, 0);
  EXPECT_EQ(run_->Ends().size(), 3U);
}

TEST_F(StoppingTest, NoThreadBlocksSigterm) {
  run_->StartItems(ItemsFile({Sleeper("a")}));
  run_->AwaitChildren(1);
  const std::vector<pid_t> threads = ThreadsOf(run_->Process());
  EXPECT_GE(threads.size(), 3U);
  for (const pid_t thread : threads) {
    // The C library blocks all signals while it makes a thread.
    EXPECT_TRUE(Eventually(
        [&] { return !StatusSignals(thread, "SigBlk").contains(SIGTERM); }));
    EXPECT_TRUE(StatusSignals(thread, "SigCgt").contains(SIGTERM));
  }
  run_->ExpectStops();
}

TEST_F(StoppingTest, AnEmptyProgramEndsTheWholeProcessGroup) {
  run_->StartItems(ItemsFile({Sleeper("bystander"), R"({"name": "empty"})"}));
  EXPECT_EQ(run_->Wait(), SIGKILL);
  EXPECT_TRUE(run_->HasLogged(Message(kNoProgramMessage, "empty")));
  EXPECT_TRUE(Eventually([&] { return kill(-run_->Process(), 0) == -1; }))
      << "a process of the group is left";
}

#ifdef FAILING_CALLS

// Holds the first fork until the launcher waits for another child or stops one,
// and keeps SIGKILL away from the group.
class LateForkTest : public StoppingTest {
 protected:
  void SetUp() override {
    StoppingTest::SetUp();
    if (!IsSkipped()) {
      HoldTheFirstFork();
    }
  }

  void HoldTheFirstFork() {
    run_->SetEnvironment("LD_PRELOAD", FAILING_CALLS);
    run_->SetEnvironment("FAILING", "fork:late");
    run_->SetEnvironment("KILLS", run_->Root() / "kills");
  }
};

// Exit-time destruction in the forked child has the ids of the other items.
TEST_F(LateForkTest, TheChildOfAnEmptyProgramKillsTheOtherProgramsById) {
  const std::string daemon = R"({"name": "daemon", "program": "/usr/bin/setsid",
      "argc": 2, "args": {"0": "/bin/sleep", "1": "30"}})";
  run_->StartItems(ItemsFile({R"({"name": "empty"})", daemon}));
  EXPECT_EQ(run_->AwaitEnds("daemon").at(0).status, SIGKILL);
  EXPECT_EQ(run_->AwaitEnds("empty").at(0).status, 0);
  EXPECT_TRUE(ReadFile(run_->Root() / "kills").starts_with("0\n"))
      << "its own group";
  run_->ExpectStops();
}

// A C library that holds a lock inside `exit` would keep it in this child.
TEST_F(LateForkTest, AChildForkedDuringTheExitEndsWithStatusZero) {
  // The exit may also come before the item first checks its flag; then it does
  // not fork.
  for (int i = 0; run_->Ends("empty").empty() && i < 200; ++i) {
    run_ = std::make_unique<LauncherRun>();
    HoldTheFirstFork();
    run_->StartItems(ItemsFile({R"({"name": "empty"})", "5"}));
    EXPECT_EQ(run_->Wait(), 0);
  }
  ASSERT_EQ(run_->Ends("empty").size(), 1U);
  EXPECT_EQ(run_->Ends("empty")[0].status, 0);
}

#endif

}  // namespace
