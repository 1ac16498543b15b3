#include "logger/Burst.h"

namespace {

constexpr std::int64_t kNearlyFull = 1;

std::int64_t Nanoseconds(Burst::Clock::time_point time) {
  return std::chrono::nanoseconds(time.time_since_epoch()).count();
}

}  // namespace

// Other threads' lines may lie in the future. So may all, when the clock is set
// back; a look does not last then.
Burst::Look Burst::Needed(Clock::time_point now) const {
  const std::int64_t look = look_.load(std::memory_order_relaxed);
  const auto age = std::chrono::nanoseconds(Nanoseconds(now) - look);
  const auto pause = now - written_.load(std::memory_order_relaxed);
  if (pause >= kPause || age >= kLookLasts || age <= -kLookLasts) {
    return Look::kAtPath;
  }
  return (look & kNearlyFull) != 0 ? Look::kAtSize : Look::kAtNothing;
}

void Burst::Looked(Clock::time_point now, off_t room) {
  const std::int64_t even = Nanoseconds(now) & ~kNearlyFull;
  look_.store(room < kMostBytes ? even | kNearlyFull : even,
              std::memory_order_relaxed);
}

void Burst::Wrote() { written_.store(Clock::now(), std::memory_order_relaxed); }

void Burst::Stop() { look_.store(0, std::memory_order_relaxed); }
