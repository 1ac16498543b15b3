#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <optional>

#include "tools/status/ProcessTable.h"

namespace fs = std::filesystem;
using std::chrono::milliseconds;

namespace {

// A file in /proc, whole; empty when it is gone. `owner` becomes its user.
std::string ReadWhole(const std::string& path, uid_t* owner) {
  std::string text;
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    return text;
  }
  struct stat properties {};
  *owner = fstat(file, &properties) == 0 ? properties.st_uid : *owner;
  std::array<char, 4096> chunk;
  ssize_t count = 0;
  while ((count = read(file, chunk.data(), chunk.size())) > 0) {
    text.append(chunk.data(), static_cast<std::size_t>(count));
  }
  close(file);
  return text;
}

milliseconds Ticks(std::uint64_t ticks) {
  static const auto per_second =
      static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
  return milliseconds(ticks * 1000 / per_second);
}

milliseconds SinceBoot() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return std::chrono::duration_cast<milliseconds>(
      std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

std::optional<Process> ReadProcess(pid_t id) {
  const std::string directory = "/proc/" + std::to_string(id);
  Process process;
  process.id = id;
  const std::string stat = ReadWhole(directory + "/stat", &process.user);
  // The name may hold anything, parentheses among it.
  const std::size_t name = stat.find('(') + 1;
  const std::size_t name_end = stat.rfind(')');
  char state = 'X';
  unsigned long long user_ticks = 0;
  unsigned long long system_ticks = 0;
  unsigned long long start_ticks = 0;
  unsigned long long pages = 0;
  if (name_end == std::string::npos ||
      std::sscanf(stat.c_str() + name_end,
                  ") %c %d %*d %*d %*d %*d %*u %*u %*u %*u %*u %llu %llu %*d "
                  "%*d %*d %*d %d %*d %llu %*u %llu",
                  &state, &process.parent, &user_ticks, &system_ticks,
                  &process.threads, &start_ticks, &pages) != 7 ||
      state == 'Z' || state == 'X') {
    return std::nullopt;
  }
  process.name = stat.substr(name, name_end - name);
  process.command_line = ReadWhole(directory + "/cmdline", &process.user);
  process.uptime = std::max(SinceBoot() - Ticks(start_ticks), milliseconds(0));
  process.processor_time = Ticks(user_ticks + system_ticks);
  process.resident_bytes = pages * static_cast<unsigned>(getpagesize());
  return process;
}

}  // namespace

std::vector<Process> ReadProcesses() {
  std::vector<Process> processes;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    pid_t id = 0;
    if (std::from_chars(name.data(), name.data() + name.size(), id).ec ==
        std::errc()) {
      if (std::optional<Process> process = ReadProcess(id)) {
        processes.push_back(std::move(*process));
      }
    }
  }
  std::ranges::sort(processes, {}, &Process::id);
  return processes;
}

fs::path WorkingDirectory(pid_t process) {
  std::error_code hidden;
  return fs::read_symlink("/proc/" + std::to_string(process) + "/cwd", hidden);
}
