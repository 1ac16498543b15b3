// A progress display for what takes longer than a second.

#pragma once

#include <signal.h>

#include <array>
#include <chrono>
#include <cstdint>

// One at a time. While it is shown, SIGINT and SIGTERM wipe it before they end
// the process.
class Progress {
 public:
  // Of `total` bytes, on standard error; shown on a terminal only.
  explicit Progress(std::uint64_t total);
  // Wipes what it has shown.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Show(std::uint64_t done);

 private:
  using Clock = std::chrono::steady_clock;

  void HandleSignals();

  const std::uint64_t total_;
  const bool enabled_;
  Clock::time_point next_;
  bool shown_ = false;
  std::array<struct sigaction, 2> before_{};
};
