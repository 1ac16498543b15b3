#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Poll.h"
#include "tests/support/TempDir.h"
#include "tools/status/ProcessTable.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::optional<Process> Find(pid_t id) {
  for (const Process& process : ReadProcesses()) {
    if (process.id == id) {
      return process;
    }
  }
  return std::nullopt;
}

// A process that executes `program` with the arguments `words`.
class Started {
 public:
  Started(const std::string& program, const std::vector<std::string>& words) {
    std::vector<char*> vector;
    vector.reserve(words.size() + 1);
    for (const std::string& word : words) {
      vector.push_back(const_cast<char*>(word.c_str()));
    }
    vector.push_back(nullptr);
    id_ = fork();
    if (id_ == 0) {
      execv(program.c_str(), vector.data());
      _exit(127);
    }
  }
  ~Started() {
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
  }
  Started(const Started&) = delete;
  Started& operator=(const Started&) = delete;

  pid_t Id() const { return id_; }

 private:
  pid_t id_ = 0;
};

TEST(ProcessTable, HoldsThisProcess) {
  while (std::clock() < CLOCKS_PER_SEC / 10) {
  }
  const std::optional<Process> self = Find(getpid());
  ASSERT_TRUE(self);
  EXPECT_EQ(self->parent, getppid());
  EXPECT_EQ(self->user, geteuid());
  EXPECT_FALSE(self->arguments.empty());
  EXPECT_GT(self->processor_time, 0ms);
  EXPECT_LT(self->processor_time, 1h);
  EXPECT_GT(self->uptime, 50ms);
  EXPECT_LT(self->uptime, 1h);
  EXPECT_GT(self->resident_bytes, 500'000U);
  EXPECT_LT(self->resident_bytes, 100'000'000'000U);
}

TEST(ProcessTable, CountsThreads) {
  const int before = Find(getpid())->threads;
  std::promise<void> end;
  std::thread waiting([&] { end.get_future().wait(); });
  EXPECT_EQ(Find(getpid())->threads, before + 1);
  end.set_value();
  waiting.join();
}

TEST(ProcessTable, HoldsArgumentsByteForByte) {
  const std::vector<std::string> words{"sh",  "-c",  "kill -STOP $$",
                                       "",    "a b", std::string(100'000, 'x'),
                                       "\xff"};
  const Started started("/bin/sh", words);
  EXPECT_TRUE(Eventually([&] {
    const std::optional<Process> process = Find(started.Id());
    return process && process->arguments == words;
  }));
}

TEST(ProcessTable, CopesWithParenthesesInAName) {
  const TempDir directory;
  const std::string program = directory.Path() / ") R 1 (x";
  fs::copy_file("/bin/sleep", program);
  const std::vector<std::string> words{"sleep", "1000"};
  const Started started(program, words);
  std::optional<Process> process;
  // There are no arguments while execv replaces the program.
  ASSERT_TRUE(Eventually([&] {
    process = Find(started.Id());
    return process && process->arguments == words;
  }));
  EXPECT_EQ(process->parent, getpid());
  EXPECT_EQ(process->threads, 1);
}

TEST(ProcessTable, IsInAscendingOrder) {
  const Started started("/bin/sleep", {"sleep", "1000"});
  const std::vector<Process> processes = ReadProcesses();
  ASSERT_GE(processes.size(), 2U);
  for (std::size_t i = 1; i < processes.size(); ++i) {
    EXPECT_LT(processes[i - 1].id, processes[i].id);
  }
}

TEST(ProcessTable, LeavesOutProcessesThatHaveEnded) {
  const Started started("/bin/true", {"true"});
  siginfo_t end{};
  ASSERT_EQ(
      waitid(P_PID, static_cast<id_t>(started.Id()), &end, WEXITED | WNOWAIT),
      0);
  EXPECT_FALSE(Find(started.Id()));
}

TEST(WorkingDirectory, IsThatOfTheProcess) {
  EXPECT_EQ(WorkingDirectory(getpid()), fs::current_path());
  EXPECT_EQ(WorkingDirectory(-1), "");
}

}  // namespace
