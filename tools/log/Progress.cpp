#include "tools/log/Progress.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

namespace {

constexpr std::chrono::seconds kPatience{1};
constexpr std::chrono::milliseconds kPause{100};

}  // namespace

Progress::Progress(std::uint64_t total)
    : total_(std::max<std::uint64_t>(total, 1)),
      enabled_(isatty(STDERR_FILENO) == 1),
      next_(Clock::now() + kPatience) {}

Progress::~Progress() {
  if (shown_) {
    std::cerr << "\r\x1b[K" << std::flush;
  }
}

void Progress::Show(std::uint64_t done) {
  constexpr std::uint64_t kMebibyte = std::uint64_t{1024} * 1024;
  constexpr std::uint64_t kWhole = 100;
  if (!enabled_ || Clock::now() < next_) {
    return;
  }
  next_ = Clock::now() + kPause;
  shown_ = true;
  std::cerr << "\rreading: " << std::min(done * kWhole / total_, kWhole)
            << " % of " << total_ / kMebibyte << " MiB" << std::flush;
}
