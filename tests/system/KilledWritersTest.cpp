// Kills writers in the middle of a line, while other writers go on.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <new>
#include <random>
#include <string>
#include <thread>

#include "tests/support/LoggerFixture.h"
#include "tests/support/Soak.h"

namespace {

using std::chrono::microseconds;

constexpr char kSurvivor[] = "survivor";

// The number of glued lines is nearly always 0. But a logger that has not found
// another process's line within the last second does not check the byte before
// its line, which may therefore be glued.
constexpr int kMaxGlued = 2;

struct Kills {
  std::size_t victim_bytes;
  // Between the lines of a survivor; 0 for a tight loop.
  microseconds pause;
};

class KilledWritersTest : public LoggerFixture {
 protected:
  static constexpr int kSurvivors = 2;
  static constexpr int kMaxLifeMicroseconds = 3'000;

  // Kills writers, one after the other, while the survivors log. Then counts
  // the lines in the log.
  void Run(const Kills& kills) {
    std::vector<pid_t> survivors;
    for (int i = 0; i < kSurvivors; ++i) {
      survivors.push_back(Fork([&] { Survive(kills.pause); }));
    }
    std::mt19937 random(1);
    std::uniform_int_distribution<int> life(0, kMaxLifeMicroseconds);
    for (int kill_number = 0; kill_number < SoakOr(400, 120); ++kill_number) {
      const pid_t victim = Fork([&] { LogForEver(kills.victim_bytes); });
      std::this_thread::sleep_for(microseconds(life(random)));
      Kill(victim);
    }
    *stop_ = true;
    for (const pid_t survivor : survivors) {
      waitpid(survivor, nullptr, 0);
    }
    Log(Open(kLimits), kSurvivor);
    CountLines(" " + std::string(kills.victim_bytes, '='));
  }

  int fragments_ = 0;
  int glued_ = 0;
  int survivors_lines_ = 0;

 private:
  static constexpr LogLimits kLimits{100'000'000, 3};

  static pid_t Fork(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(100);
      body();
      _exit(0);
    }
    return child;
  }

  static void Kill(pid_t child) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }

  void LogForEver(std::size_t bytes) {
    Logger& logger = Open(kLimits);
    const std::string text(bytes, '=');
    for (;;) {
      Log(logger, text);
    }
  }

  void Survive(microseconds pause) {
    Logger& logger = Open(kLimits);
    while (!*stop_) {
      Log(logger, kSurvivor);
      if (pause.count() > 0) {
        std::this_thread::sleep_for(pause);
      }
    }
  }

  // Shared with the survivors. Killing them would make them victims, too.
  std::atomic<bool>* const stop_ =
      ::new (mmap(nullptr, sizeof(std::atomic<bool>), PROT_READ | PROT_WRITE,
                  MAP_SHARED | MAP_ANON, -1, 0)) std::atomic<bool>(false);

  // A line is glued when it directly follows a fragment.
  void CountLines(const std::string& victims_text) {
    for (const std::string& line : ReadLines(log_)) {
      if (!line.ends_with(kSurvivor)) {
        fragments_ += IsLine(line) && line.ends_with(victims_text) ? 0 : 1;
      } else if (IsLine(line) && line.find('=') == std::string::npos) {
        ++survivors_lines_;
      } else {
        ++glued_;
      }
    }
    RecordProperty("fragments", fragments_);
    RecordProperty("glued", glued_);
    std::printf("%d fragments or empty lines, %d glued, %d lines\n", fragments_,
                glued_, survivors_lines_);
  }
};

TEST_F(KilledWritersTest, GlueHardlyAnyLineOfAWriterThatPauses) {
  Run({60'000, microseconds(200)});
  EXPECT_LE(glued_, kMaxGlued);
  EXPECT_GT(survivors_lines_, 0);
}

TEST_F(KilledWritersTest, GlueNoLineToAShortFragment) {
  Run({100, microseconds(200)});
  EXPECT_EQ(glued_, 0);
  EXPECT_GT(survivors_lines_, 0);
}

TEST_F(KilledWritersTest, GlueHardlyAnyLineOfAWriterInATightLoop) {
  Run({60'000, microseconds(0)});
  EXPECT_LE(glued_, kMaxGlued);
  EXPECT_GT(survivors_lines_, 0);
}

TEST_F(KilledWritersTest,
       GlueHardlyAnyLineOfAWriterInATightLoopToAShortFragment) {
  Run({100, microseconds(0)});
  EXPECT_LE(glued_, kMaxGlued);
  EXPECT_GT(survivors_lines_, 0);
}

}  // namespace
