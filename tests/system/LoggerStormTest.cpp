// Many writers on one log at once.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "logger/Logger.h"
#include "tests/support/Coverage.h"
#include "tests/support/LogReader.h"
#include "tests/support/TempDir.h"

namespace {

constexpr char kName[] = "storm";

Logger& MakeLogger(const TempDir& dir, const LogLimits& limits) {
  // Never deleted, like the library's loggers.
  auto* const logger = new Logger(dir.Path(), kName, LOGLEVEL_DEBUG, limits);
  EXPECT_EQ(logger->Open(), 0);
  return *logger;
}

void RunThreads(int count, const std::function<void(int)>& body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) {
    threads.emplace_back(body, i);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

// Runs `body` in a forked child. An alarm ends it if it takes far too long.
pid_t Fork(const std::function<void()>& body) {
  constexpr int kPatienceSeconds = 600;
  const pid_t child = fork();
  if (child == 0) {
    alarm(kPatienceSeconds);
    body();
    KeepCoverage();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  return child;
}

bool EndsWell(pid_t child) {
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0;
}

struct Storm {
  int processes;
  int threads;
  int lines;
  off_t limit;
};

constexpr int kPaddings = 40;

// Lines of many lengths, so that they end at many places in a page.
std::string Text(int process, int thread, int line) {
  return std::to_string(process) + "/" + std::to_string(thread) + "/" +
         std::to_string(line) + " " +
         std::string(static_cast<std::size_t>(line % kPaddings), '=');
}

void Write(const Storm& storm, Logger* logger, int process) {
  RunThreads(storm.threads, [&](int thread) {
    for (int line = 0; line < storm.lines; ++line) {
      logger->Log(LOGLEVEL_ERROR, "%s", Text(process, thread, line).c_str());
    }
  });
}

// How often each line is in the files.
std::map<std::string, int> Count(
    const std::vector<std::filesystem::path>& files, std::size_t* longest) {
  std::map<std::string, int> counts;
  for (const auto& file : files) {
    for (const std::string& line : ReadLines(file)) {
      *longest = std::max(*longest, line.size() + 1);
      ++counts[MessageOf(line)];
    }
  }
  return counts;
}

void RunStorm(const Storm& storm) {
  constexpr int kKeepAll = 100'000;
  const TempDir dir;
  std::vector<pid_t> children;
  for (int process = 0; process < storm.processes; ++process) {
    children.push_back(Fork([&] {
      Write(storm, &MakeLogger(dir, {storm.limit, kKeepAll}), process);
    }));
  }
  for (const pid_t child : children) {
    EXPECT_TRUE(EndsWell(child));
  }

  const auto files = FilesIn(dir.Path());
  std::size_t longest = 0;
  auto counts = Count(files, &longest);
  for (int process = 0; process < storm.processes; ++process) {
    for (int thread = 0; thread < storm.threads; ++thread) {
      for (int line = 0; line < storm.lines; ++line) {
        const std::string text = Text(process, thread, line);
        ASSERT_EQ(counts[text], 1) << text;
      }
    }
  }
  EXPECT_EQ(counts.size(), static_cast<std::size_t>(
                               storm.processes * storm.threads * storm.lines));
  // Until a process notices that its file is full, it may write this much.
  const std::size_t late = static_cast<std::size_t>(kMaxLookGrowth) +
                           static_cast<std::size_t>(storm.threads) * longest;
  for (const auto& file : files) {
    EXPECT_LT(std::filesystem::file_size(file),
              static_cast<std::size_t>(storm.limit) +
                  static_cast<std::size_t>(storm.processes) * late)
        << file;
  }
}

// Forks every child while other threads format, write and rotate. The child
// then does the same.
void RunForks(int forks) {
  constexpr int kThreads = 4;
  constexpr int kLongMessage = 10'000;
  const TempDir dir;
  Logger& logger = MakeLogger(dir, {100'000, 3});
  const std::string long_text(kLongMessage, '\n');
  std::atomic<bool> stop = false;
  std::thread others([&] {
    RunThreads(kThreads, [&](int thread) {
      for (int line = 0; !stop; ++line) {
        logger.Log(LOGLEVEL_ERROR, "%s", Text(0, thread, line).c_str());
        logger.Log(LOGLEVEL_ERROR, "%s", long_text.c_str());
      }
    });
  });
  bool well = true;
  for (int i = 0; well && i < forks; ++i) {
    well = EndsWell(Fork([&] {
      logger.Log(LOGLEVEL_ERROR, "child %d", i);
      logger.Log(LOGLEVEL_ERROR, "%s", long_text.c_str());
    }));
  }
  stop = true;
  others.join();
  EXPECT_TRUE(well);
}

constexpr off_t kSmallFile = 100'000;

// Large enough for many lines between two rotations.
constexpr off_t kLargeFile = 2'000'000;

TEST(Storm, NeverLosesOrTearsOrDoublesALine) {
  RunStorm({8, 4, 2'000, kSmallFile});
}

TEST(Storm, NeverLosesOrTearsOrDoublesALineInLargeFiles) {
  RunStorm({8, 4, 2'000, kLargeFile});
}

TEST(Storm, NeverLosesOrTearsOrDoublesALineWhenEveryFileHoldsFewLines) {
  RunStorm({4, 4, 200, 1'000});
}

// While one thread writes a long line, others see the file end inside it.
TEST(Storm, DoesNotMistakeALongLineBeingWrittenForAFragment) {
  constexpr int kLines = 200;
  constexpr int kMaxOpened = 10'000;
  constexpr std::size_t kLongMessage = 500'000;
  const TempDir dir;
  Logger& writer = MakeLogger(dir, {});
  std::atomic<bool> stop = false;
  std::thread writes([&] {
    const std::string text(kLongMessage, '=');
    for (int line = 0; line < kLines; ++line) {
      writer.LogText(LOGLEVEL_ERROR, text.c_str());
    }
    stop = true;
  });
  // Each logger keeps a mapping forever, and a process may have only a limited
  // number of mappings.
  for (int opened = 0; opened < kMaxOpened && !stop; ++opened) {
    Logger opener(dir.Path(), kName, LOGLEVEL_DEBUG, {});
    EXPECT_EQ(opener.Open(), 0);
    opener.LogText(LOGLEVEL_ERROR, "opened");
  }
  writes.join();
  for (const auto& file : FilesIn(dir.Path())) {
    for (const std::string& line : ReadLines(file)) {
      ASSERT_FALSE(line.empty());
    }
  }
}

TEST(Storm, LetsForkedChildrenLog) { RunForks(300); }

TEST(Soak, NeverLosesOrTearsOrDoublesALine) {
  RunStorm({8, 4, 20'000, kSmallFile});
}

TEST(Soak, NeverLosesOrTearsOrDoublesALineInLargeFiles) {
  RunStorm({8, 4, 20'000, kLargeFile});
}

TEST(Soak, LetsTenThousandForkedChildrenLog) { RunForks(10'000); }

}  // namespace
