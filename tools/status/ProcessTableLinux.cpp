#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>

#include "tools/status/ProcessTable.h"

namespace fs = std::filesystem;
using std::chrono::milliseconds;

namespace {

milliseconds Ticks(unsigned long long ticks) {
  return milliseconds(ticks * 1000 /
                      static_cast<unsigned>(sysconf(_SC_CLK_TCK)));
}

milliseconds SinceBoot() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return std::chrono::seconds(now.tv_sec) +
         milliseconds(now.tv_nsec / 1'000'000);
}

// The words of a file with a NUL after each; a file without any is one word.
std::vector<std::string> Words(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::string> words;
  for (std::string word; std::getline(file, word, '\0');) {
    words.push_back(word);
  }
  return words;
}

// nullopt for a process that has ended.
std::optional<Process> ReadProcess(pid_t id) {
  const std::string directory = "/proc/" + std::to_string(id);
  struct stat properties {};
  const std::vector<std::string> text = Words(directory + "/stat");
  if (text.empty() || stat(directory.c_str(), &properties) != 0) {
    return std::nullopt;
  }
  Process process;
  char state = 'X';
  unsigned long long user_ticks = 0;
  unsigned long long system_ticks = 0;
  unsigned long long start_ticks = 0;
  unsigned long long pages = 0;
  // The name before this may contain any character, even parentheses.
  std::sscanf(text[0].substr(text[0].rfind(')')).c_str(),
              ") %c %d %*d %*d %*d %*d %*u %*u %*u %*u %*u %llu %llu %*d "
              "%*d %*d %*d %d %*d %llu %*u %llu",
              &state, &process.parent, &user_ticks, &system_ticks,
              &process.threads, &start_ticks, &pages);
  if (state == 'Z' || state == 'X') {
    return std::nullopt;
  }
  process.id = id;
  process.user = properties.st_uid;
  process.arguments = Words(directory + "/cmdline");
  process.uptime = std::max(SinceBoot() - Ticks(start_ticks), milliseconds(0));
  process.processor_time = Ticks(user_ticks + system_ticks);
  process.resident_bytes = pages * static_cast<unsigned>(getpagesize());
  return process;
}

}  // namespace

std::vector<Process> ReadProcesses() {
  std::vector<Process> processes;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
    const pid_t id = std::atoi(entry.path().filename().c_str());
    if (std::optional<Process> process; id > 0 && (process = ReadProcess(id))) {
      processes.push_back(std::move(*process));
    }
  }
  std::ranges::sort(processes, {}, &Process::id);
  return processes;
}

fs::path WorkingDirectory(pid_t process) {
  std::error_code hidden;
  return fs::read_symlink("/proc/" + std::to_string(process) + "/cwd", hidden);
}
