// The machine's present processes. This is a seam to the platform, with one
// source file for each.

#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

struct Process {
  pid_t id = 0;
  pid_t parent = 0;
  uid_t user = 0;
  int threads = 0;
  std::vector<std::string> arguments;
  std::chrono::microseconds uptime{0};
  std::chrono::microseconds processor_time{0};
  std::uint64_t resident_bytes = 0;
};

// The processes that have not ended, in ascending order of their ids. They are
// read one after another: one may end, or start, meanwhile. Processes that the
// system hides from this user are left out. Throws std::system_error if the
// system has no table.
std::vector<Process> ReadProcesses();

// Empty if it cannot be read.
std::filesystem::path WorkingDirectory(pid_t process);
