// Process tables made for a test.

#pragma once

#include <string>
#include <vector>

#include "tools/status/Status.h"

inline constexpr uid_t kUser = 1000;
inline constexpr std::chrono::hours kUptime{1};

inline Process Program(pid_t id, pid_t parent,
                       const std::vector<std::string>& words) {
  Process process;
  process.id = id;
  process.parent = parent;
  process.user = kUser;
  process.arguments = words;
  process.threads = 1;
  process.uptime = kUptime;
  return process;
}

inline Worker Working(pid_t id, const std::vector<std::string>& words) {
  return {Program(id, 1, words), 0, ""};
}

inline Worker Chain(pid_t id, std::size_t links) {
  return {Program(id, 1, {"launcher", "o", "i"}), links, ""};
}
