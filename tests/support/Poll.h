// Waits for a condition instead of a fixed time.

#pragma once

#include <chrono>
#include <thread>

// Polls `condition` until it is true. Returns false after 60 seconds, far more
// than a loaded machine needs.
template <class Condition>
bool Eventually(Condition condition) {
  constexpr std::chrono::seconds kPatience{60};
  constexpr std::chrono::milliseconds kPollPause{2};
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(kPollPause);
  }
  return true;
}
