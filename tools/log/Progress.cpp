#include "tools/log/Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <string>

#include "tools/text/Terminal.h"

namespace {

constexpr std::chrono::seconds kPatience{1};
constexpr std::chrono::milliseconds kPause{100};

constexpr std::array<int, 2> kSignals{SIGINT, SIGTERM};

constexpr char kWipe[] = "\r\x1b[K";

void Wipe() {
  [[maybe_unused]] const ssize_t ignored =
      write(STDERR_FILENO, kWipe, sizeof(kWipe) - 1);
}

// By now the signal has its default disposition again.
extern "C" void WipeAndEnd(int number) {
  Wipe();
  raise(number);
}

}  // namespace

Progress::Progress(std::uint64_t total)
    : total_(std::max<std::uint64_t>(total, 1)),
      enabled_(TakesEscapes(STDERR_FILENO)),
      next_(Clock::now() + kPatience) {}

Progress::~Progress() {
  if (shown_) {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      sigaction(kSignals[i], &before_[i], nullptr);
    }
    Wipe();
  }
}

void Progress::HandleSignals() {
  struct sigaction action {};
  action.sa_handler = WipeAndEnd;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], nullptr, &before_[i]);
    if (before_[i].sa_handler != SIG_IGN) {
      sigaction(kSignals[i], &action, nullptr);
    }
  }
}

void Progress::Show(std::uint64_t done) {
  constexpr std::uint64_t kMebibyte = std::uint64_t{1024} * 1024;
  constexpr std::uint64_t kWhole = 100;
  if (!enabled_ || Clock::now() < next_) {
    return;
  }
  next_ = Clock::now() + kPause;
  if (!shown_) {
    shown_ = true;
    HandleSignals();
  }
  const std::string text =
      "reading: " + std::to_string(std::min(done * kWhole / total_, kWhole)) +
      " % of " + std::to_string(total_ / kMebibyte) + " MiB";
  // A line that wraps could not be wiped.
  std::cerr << kWipe << text.substr(0, SizeOf(STDERR_FILENO).columns - 1)
            << std::flush;
}
