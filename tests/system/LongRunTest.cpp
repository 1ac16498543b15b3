// Items that end at once, for a long time.

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <fstream>
#include <map>
#include <thread>
#include <vector>

#include "launcher/Items.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tests/support/Soak.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int kStopped = 1 << 8;

std::vector<pid_t> ZombiesOf(pid_t process) {
  std::vector<pid_t> zombies;
  for (const pid_t child : ChildrenOf(process)) {
    if (StatusField(child, "State") == "Z") {
      zombies.push_back(child);
    }
  }
  return zombies;
}

// Measures how long a pause really takes on this machine, under its present
// load, for a thread that starts a process after each.
class MeasuredPause {
 public:
  MeasuredPause() : thread_([this] { Measure(); }) {}
  ~MeasuredPause() {
    ended_ = true;
    thread_.join();
  }
  Seconds Mean() const { return Seconds(sum_ / count_); }

 private:
  void Measure() {
    while (!ended_) {
      std::array<char*, 2> vector{const_cast<char*>("/bin/true"), nullptr};
      pid_t child = 0;
      posix_spawn(&child, vector[0], nullptr, nullptr, vector.data(), nullptr);
      waitpid(child, nullptr, 0);
      const auto start = steady_clock::now();
      std::this_thread::sleep_for(kRestartPause);
      sum_ = sum_ + Seconds(steady_clock::now() - start).count();
      count_ = count_ + 1;
    }
  }

  std::atomic<bool> ended_ = false;
  std::atomic<double> sum_ = 0;
  std::atomic<int> count_ = 0;
  std::thread thread_;
};

struct Cycles {
  int starts = 0;
  Seconds spawning{0};  // from each start to its end
  std::chrono::nanoseconds first{0};
  std::chrono::nanoseconds last{0};
};

// The cycles of each item in `records`.
std::map<std::string, Cycles> CyclesOf(const std::vector<LogRecord>& records) {
  std::map<std::string, Cycles> items;
  std::map<std::string, std::chrono::nanoseconds> started;
  for (const LogRecord& record : records) {
    if (const auto name = StartIn(record)) {
      Cycles& item = items[*name];
      item.first = item.starts == 0 ? record.time : item.first;
      item.last = record.time;
      ++item.starts;
      started[*name] = record.time;
    } else if (const auto end = EndIn(record);
               end && started.contains(end->name)) {
      items[end->name].spawning += record.time - started[end->name];
    }
  }
  return items;
}

class LongRunTest : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_SANDBOX(); }

  // Runs `count` items that end at once, and a healthy one, for at least
  // `settling` and then `watched`. Returns the mean pause meanwhile.
  Seconds RunItems(int count, std::chrono::seconds settling,
                   std::chrono::seconds watched) {
    std::vector<std::string> items{Sleeper("healthy")};
    for (int i = 0; i < count; ++i) {
      items.push_back(Tick("tick" + std::to_string(i)));
    }
    run_.Directory().Write("home/Library/Application Support/Demo/log.ini",
                           "[LOG]\nLEVEL=DEBUG\n");
    const MeasuredPause pause;
    run_.StartItems(ItemsFile(items));
    std::this_thread::sleep_for(settling);
    EXPECT_TRUE(Eventually([&] {
      const auto cycles = CyclesOf(run_.Records());
      return std::ssize(cycles) == count + 1 &&
             std::ranges::all_of(cycles, [](const auto& item) {
               return item.first == "healthy" || item.second.starts > 3;
             });
    }));
    Watch(count, watched);
    return pause.Mean();
  }

  // Expects the launcher's resources not to change for `time`.
  void Watch(int count, std::chrono::seconds time) {
    const pid_t launcher = run_.Process();
    const auto descriptors = DescriptorsOf(launcher);
    const int memory = std::stoi(StatusField(launcher, "VmRSS"));
    int highest = memory;
    const auto end = steady_clock::now() + time;
    while (steady_clock::now() < end) {
      EXPECT_EQ(DescriptorsOf(launcher), descriptors);
      // `main`, the stop thread and one for each item.
      EXPECT_EQ(std::ssize(ThreadsOf(launcher)), count + 3);
      highest = std::max(highest, std::stoi(StatusField(launcher, "VmRSS")));
      for (const pid_t zombie : ZombiesOf(launcher)) {
        EXPECT_TRUE(Eventually([&] {
          return StatusField(zombie, "State") != "Z";
        })) << "not waited for";
      }
      std::this_thread::sleep_for(1s);
    }
    RecordProperty("memory_after_settling_kb", memory);
    RecordProperty("memory_highest_kb", highest);
    constexpr int kNoiseKilobytes = 1024;
    EXPECT_LE(highest, memory + kNoiseKilobytes);
  }

  // Expects each item to have restarted as often as `pause` and the time that
  // its own children took allow, within `tolerance`.
  void ExpectRestarts(int count, Seconds pause, double tolerance) {
    auto items = CyclesOf(run_.Records());
    EXPECT_EQ(items["healthy"].starts, 1) << "its process never changes";
    items.erase("healthy");
    EXPECT_EQ(std::ssize(items), count);
    int restarts = 0;
    double worst = 0;
    Seconds spawning{0};
    for (const auto& [name, item] : items) {
      const double cycles = item.starts - 1;
      const Seconds time = item.last - item.first;
      const double allowed = time / (pause + item.spawning / item.starts);
      EXPECT_NEAR(cycles / allowed, 1, tolerance) << name;
      worst = std::max(worst, std::abs(cycles / allowed - 1));
      restarts += item.starts - 1;
      spawning += item.spawning;
    }
    RecordProperty("restarts", restarts);
    RecordProperty("worst_deviation_percent", std::to_string(100 * worst));
    RecordProperty("pause_ms", std::to_string(1000 * pause.count()));
    RecordProperty("spawn_ms",
                   std::to_string(1000 * spawning.count() / restarts));
  }

  LauncherRun run_;
};

TEST_F(LongRunTest, FiftyItemsLeaveTheLauncherAsItIs) {
  const int items = SoakOr(50, 20);
  const Seconds pause = RunItems(items, SoakOr(30s, 5s), SoakOr(570s, 10s));
  EXPECT_EQ(run_.Stop(), kStopped);
  ExpectRestarts(items, pause, SoakOr(0.02, 0.9));
}

TEST_F(LongRunTest, ThreeHundredItemsLeaveTheLauncherAsItIs) {
  const int items = SoakOr(300, 60);
  const Seconds pause = RunItems(items, SoakOr(30s, 5s), SoakOr(60s, 10s));
  EXPECT_EQ(run_.Stop(), kStopped);
  ExpectRestarts(items, pause, SoakOr(0.1, 0.9));
}

}  // namespace
