// SIGTERM at every phase of a launcher's life, alone and by the thousand.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tests/support/Soak.h"

namespace {

using Random = std::mt19937;
using std::chrono::microseconds;

int Pick(Random& random, int below) {
  return static_cast<int>(random() % static_cast<unsigned>(below));
}

// Sends one, two or a thousand SIGTERMs to `process` or to single threads of
// it, with other signals between them. Continues it at the end.
void Storm(pid_t process, Random& random) {
  const int count = std::array{1, 2, 1000}[random() % 3];
  const bool mixed = random() % 2 == 0;
  const bool to_threads = random() % 2 == 0;
  const std::vector<pid_t> threads = ThreadsOf(process);
  for (int i = 0; i < count; ++i) {
    if (mixed && random() % 4 == 0) {
      kill(process, std::array{SIGCHLD, SIGCONT, SIGSTOP}[random() % 3]);
    }
    if (to_threads && !threads.empty()) {
      SignalThread(process, threads[random() % threads.size()], SIGTERM);
    } else {
      kill(process, SIGTERM);
    }
  }
  kill(process, SIGCONT);
}

void ExpectStopped(int status) {
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
}

// Expects each child to have ended once, with one of `statuses`, and its
// supervisor to have logged it. The starts and ends of an item alternate, so it
// never had two children at a time.
void ExpectNoChildLostOrDouble(const LauncherRun& run,
                               const std::set<int>& statuses = {0, SIGKILL}) {
  std::map<std::string, int> alive;
  std::set<int> ended;
  for (const LogRecord& record : run.Records()) {
    if (const auto name = StartIn(record)) {
      EXPECT_EQ(++alive[*name], 1) << record.message;
    } else if (const auto end = EndIn(record)) {
      EXPECT_EQ(--alive[end->name], 0) << record.message;
      EXPECT_TRUE(ended.insert(end->child).second) << record.message;
      EXPECT_EQ(end->ret, end->child) << record.message;
      EXPECT_TRUE(statuses.contains(end->status)) << record.message;
    }
  }
  for (const auto& [name, count] : alive) {
    EXPECT_EQ(count, 0) << name;
  }
  EXPECT_TRUE(SessionOf(run.Process()).empty());
}

// Runs `round` with the numbers 0 to `count` - 1, several at a time: most of a
// round is waiting.
template <class Round>
void Rounds(int count, Round round) {
  constexpr int kAtATime = 8;
  std::atomic<int> next = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kAtATime; ++i) {
    threads.emplace_back([&] {
      for (int number; (number = next++) < count;) {
        SCOPED_TRACE("round " + std::to_string(number));
        Random random(static_cast<unsigned>(number));
        LauncherRun run;
        run.Directory().Write("home/Library/Application Support/Demo/log.ini",
                              "[LOG]\nLEVEL=DEBUG\n");
        round(run, random);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

class SignalStormTest : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_SANDBOX(); }

  // Starts a launcher that reads its items from a FIFO. Returns the FIFO's
  // other end; by then the launcher has its handler.
  static int StartOnFifo(LauncherRun& run) {
    const std::string fifo = run.Root() / "fifo";
    EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    run.Start({"alpha", fifo});
    return open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
  }

  static void Feed(int fifo, const std::string& items) {
    EXPECT_EQ(write(fifo, items.data(), items.size()),
              static_cast<ssize_t>(items.size()));
    close(fifo);
  }

  // Two hundred items whose children end after `seconds`.
  static std::string TwoHundred(const std::string& seconds) {
    std::vector<std::string> items;
    for (int i = 0; i < 200; ++i) {
      items.push_back(
          R"({"name": "item)" + std::to_string(i) +
          R"(", "program": "/bin/sleep", "argc": 1, "args": {"0": ")" +
          seconds + "\"}}");
    }
    return ItemsFile(items);
  }

  // Returns the launcher's wait status.
  static int StormWhileLoading(LauncherRun& run, Random& random,
                               const std::string& items) {
    Feed(StartOnFifo(run), items);
    std::this_thread::sleep_for(microseconds(Pick(random, 800000)));
    Storm(run.Process(), random);
    return run.Stop();
  }
};

TEST_F(SignalStormTest, BeforeTheWaitIsNotRemembered) {
  Rounds(SoakOr(2000, 24), [](LauncherRun& run, Random& random) {
    const int fifo = StartOnFifo(run);
    run.AwaitReading();
    const std::size_t descriptors = DescriptorsOf(run.Process()).size();
    Storm(run.Process(), random);
    run.AwaitReading();
    EXPECT_EQ(DescriptorsOf(run.Process()).size(), descriptors);
    Feed(fifo, ItemsFile({Sleeper("a"), Sleeper("b")}));
    run.AwaitReady(2);
    EXPECT_TRUE(run.IsRunning());
    run.Signal(SIGTERM);
    ExpectStopped(run.Wait());
    ExpectNoChildLostOrDouble(run);
  });
}

// A SIGTERM that finds an item that has not forked kills the launcher's process
// group, by design. So exactly two ends are possible here.
TEST_F(SignalStormTest, DuringLoadingOfTwoHundredItems) {
  const std::string file = TwoHundred("1000");
  std::atomic<int> stopped = 0;
  Rounds(SoakOr(200, 16), [&](LauncherRun& run, Random& random) {
    const int status = StormWhileLoading(run, random, file);
    if (status == SIGKILL) {
      EXPECT_TRUE(Eventually([&] { return SessionOf(run.Process()).empty(); }));
      return;
    }
    ++stopped;
    ExpectStopped(status);
    ExpectNoChildLostOrDouble(run);
  });
  RecordProperty("stopped", stopped);
}

TEST_F(SignalStormTest, WhileChildrenRun) {
  Rounds(SoakOr(3000, 24), [](LauncherRun& run, Random& random) {
    run.StartItems(ItemsFile({Sleeper("a"), Sleeper("b")}));
    run.AwaitReady(2);
    Storm(run.Process(), random);
    ExpectStopped(run.Wait());
    ExpectNoChildLostOrDouble(run);
  });
}

TEST_F(SignalStormTest, DuringPauses) {
  Rounds(SoakOr(2000, 24), [](LauncherRun& run, Random& random) {
    run.StartItems(ItemsFile({Tick("a"), Tick("b")}));
    // Every item has forked and `main` waits.
    run.Await("a ", 2);
    run.Await("b ", 2);
    run.AwaitWaiting();
    std::this_thread::sleep_for(microseconds(Pick(random, 60000)));
    Storm(run.Process(), random);
    ExpectStopped(run.Wait());
    ExpectNoChildLostOrDouble(run);
  });
}

TEST_F(SignalStormTest, DuringTheStopItself) {
  Rounds(SoakOr(1800, 24), [](LauncherRun& run, Random& random) {
    const std::string blinker = R"({"name": "b", "program": "/bin/sleep",
                                    "argc": 1, "args": {"0": "0.05"}})";
    run.StartItems(ItemsFile({Sleeper("a"), blinker, Sleeper("c")}));
    run.AwaitReady(3);
    while (run.IsRunning()) {
      Storm(run.Process(), random);
      std::this_thread::sleep_for(microseconds(Pick(random, 20000)));
    }
    ExpectStopped(run.Wait());
    ExpectNoChildLostOrDouble(run);
  });
}

TEST_F(SignalStormTest, DuringExit) {
  Rounds(SoakOr(1000, 24), [](LauncherRun& run, Random& random) {
    run.StartItems("{}");
    run.AwaitReady(0);
    while (run.IsRunning()) {
      Storm(run.Process(), random);
    }
    ExpectStopped(run.Wait());
  });
}

#ifdef FAILING_CALLS

// With the SIGKILL to its process group held back, the launcher stops in order
// in any storm. A child that misses its SIGKILL ends by itself.
TEST_F(SignalStormTest, DuringLoadingWithoutTheSigkillToTheGroup) {
  const std::string file = TwoHundred("3");
  Rounds(SoakOr(80, 8), [&](LauncherRun& run, Random& random) {
    run.SetEnvironment("LD_PRELOAD", FAILING_CALLS);
    run.SetEnvironment("FAILING", "kill:1+");
    ExpectStopped(StormWhileLoading(run, random, file));
    ExpectNoChildLostOrDouble(run);
  });
}

// Every forked child is held before its execv. A SIGTERM ends it alone, and its
// item goes on.
TEST_F(SignalStormTest, OnForkedChildrenBeforeExecv) {
  Rounds(SoakOr(1000, 24), [](LauncherRun& run, Random& random) {
    run.SetEnvironment("LD_PRELOAD", FAILING_CALLS);
    run.SetEnvironment("FAILING", "execv:hold");
    run.StartItems(ItemsFile({Sleeper("a"), Sleeper("b")}));
    run.AwaitReady(2);
    const std::vector<pid_t> children = ChildrenOf(run.Process());
    EXPECT_EQ(children.size(), 2U);
    for (const pid_t child : children) {
      Storm(child, random);
    }
    EXPECT_TRUE(Eventually([&] {
      return std::ranges::count(run.Ends(), SIGTERM, &LoggedEnd::status) ==
             std::ssize(children);
    }));
    run.AwaitReady(2);
    EXPECT_TRUE(run.IsRunning());
    Storm(run.Process(), random);
    ExpectStopped(run.Wait());
    ExpectNoChildLostOrDouble(run, {SIGTERM, SIGKILL});
  });
}

#endif

}  // namespace
