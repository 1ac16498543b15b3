#include "tests/support/ProcFs.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>

#include "tests/support/Poll.h"

#ifdef __linux__
#include <sys/syscall.h>
#endif

namespace fs = std::filesystem;

namespace {

#ifdef __linux__
constexpr long kWaitCall = SYS_wait4;
#else
constexpr long kWaitCall = 0;
#endif

std::optional<pid_t> ProcessId(const fs::path& directory) {
  const std::string name = directory.filename();
  pid_t process = 0;
  const auto [end, error] =
      std::from_chars(name.data(), name.data() + name.size(), process);
  if (error != std::errc() || end != name.data() + name.size()) {
    return std::nullopt;
  }
  return process;
}

struct ProcessEntry {
  pid_t process;
  pid_t parent;
  pid_t session;
};

std::vector<ProcessEntry> Processes() {
  std::vector<ProcessEntry> entries;
  for (const fs::directory_entry& directory : fs::directory_iterator("/proc")) {
    const std::optional<pid_t> process = ProcessId(directory.path());
    if (!process) {
      continue;
    }
    std::ifstream file(directory.path() / "stat");
    std::string stat;
    std::getline(file, stat);
    // The name before may contain anything; state, parent, group, session
    // follow.
    ProcessEntry entry{*process, 0, 0};
    const std::size_t name_end = stat.rfind(')');
    if (name_end != std::string::npos &&
        std::sscanf(stat.c_str() + name_end, ") %*c %d %*d %d", &entry.parent,
                    &entry.session) == 2) {
      entries.push_back(entry);
    }
  }
  std::ranges::sort(entries, {}, &ProcessEntry::process);
  return entries;
}

}  // namespace

std::string StatusField(pid_t process, const std::string& field) {
  std::ifstream file("/proc/" + std::to_string(process) + "/status");
  for (std::string word; file >> word;) {
    if (word == field + ":") {
      file >> word;
      return word;
    }
  }
  return "";
}

std::set<int> StatusSignals(pid_t process, const std::string& field) {
  const std::string value = StatusField(process, field);
  const std::uint64_t bits =
      value.empty() ? 0 : std::stoull(value, nullptr, 16);
  std::set<int> signals;
  for (int number = 1; number <= 64; ++number) {
    if ((bits >> (number - 1) & 1U) != 0) {
      signals.insert(number);
    }
  }
  return signals;
}

std::string CommandLine(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/cmdline",
                     std::ios::binary);
  std::string line;
  for (std::string one; std::getline(file, one, '\0');) {
    line += (line.empty() ? "" : " ") + one;
  }
  return line;
}

std::vector<pid_t> ChildrenOf(pid_t process) {
  std::vector<pid_t> children;
  for (const ProcessEntry& entry : Processes()) {
    if (entry.parent == process) {
      children.push_back(entry.process);
    }
  }
  return children;
}

bool IsBlockedIn(pid_t process, pid_t thread, long call) {
  std::ifstream file("/proc/" + std::to_string(process) + "/task/" +
                     std::to_string(thread) + "/syscall");
  long current = 0;
  return file >> current && current == call;
}

std::vector<pid_t> ThreadsOf(pid_t process) {
  std::vector<pid_t> threads;
  std::error_code ended;
  fs::directory_iterator task("/proc/" + std::to_string(process) + "/task",
                              ended);
  while (!ended && task != fs::directory_iterator()) {
    threads.push_back(std::stoi(task->path().filename()));
    task.increment(ended);
  }
  return threads;
}

int ThreadsInWait(pid_t process) {
  const std::vector<pid_t> threads = ThreadsOf(process);
  return static_cast<int>(std::ranges::count_if(threads, [&](pid_t thread) {
    return IsBlockedIn(process, thread, kWaitCall);
  }));
}

#ifdef __linux__
void SignalThread(pid_t process, pid_t thread, int number) {
  syscall(SYS_tgkill, process, thread, number);
}
#else
void SignalThread(pid_t, pid_t, int) {}  // Never called without a sandbox.
#endif

std::vector<pid_t> SessionOf(pid_t leader) {
  std::vector<pid_t> session;
  for (const ProcessEntry& entry : Processes()) {
    if (entry.session == leader) {
      session.push_back(entry.process);
    }
  }
  return session;
}

void EndSession(pid_t leader) {
  EXPECT_TRUE(Eventually([&] {
    std::vector<pid_t> session = SessionOf(leader);
    std::erase(session, getpid());
    for (const pid_t process : session) {
      kill(process, SIGKILL);
    }
    return session.empty();
  }));
}

std::map<int, std::string> DescriptorsOf(pid_t process) {
  std::map<int, std::string> descriptors;
  const fs::path directory = "/proc/" + std::to_string(process) + "/fd";
  std::error_code ended;
  fs::directory_iterator entry(directory, ended);
  while (!ended && entry != fs::directory_iterator()) {
    std::error_code vanished;
    const fs::path target = fs::read_symlink(entry->path(), vanished);
    if (!vanished) {
      descriptors[std::stoi(entry->path().filename())] = target;
    }
    entry.increment(ended);
  }
  return descriptors;
}
