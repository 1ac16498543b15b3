#include "tools/log/History.h"

#include <algorithm>
#include <csignal>

#include "tools/log/WaitStatus.h"

namespace {

constexpr LogMicros kRestartPause = 50'000;

// An item starts again within this, or not at all.
constexpr LogMicros kRestartSeen = kMicrosPerSecond;

constexpr std::uint32_t kLoopingPerMinute = 5;

// More launchers than this run an item of one name only in the long run.
constexpr std::size_t kMaxSupervisors = 16;
constexpr std::size_t kMaxLaunchers = 256;

// Whether the event comes from a forked copy of a launcher: its only thread has
// the process's own number, which a supervision thread never has.
bool IsFromCopy(const LogEvent& event) { return event.process == event.thread; }

}  // namespace

void MinuteRate::Add(std::int64_t second) {
  second = std::max(second, latest_);
  const std::int64_t passed = std::min(second - latest_, kSeconds);
  for (std::int64_t i = 1; i <= passed; ++i) {
    auto& count = counts_[static_cast<std::size_t>((latest_ + i) % kSeconds)];
    sum_ -= count;
    count = 0;
  }
  if (passed == kSeconds) {
    counts_.fill(0);
    sum_ = 0;
  }
  latest_ = second;
  ++counts_[static_cast<std::size_t>(second % kSeconds)];
  worst_ = std::max(worst_, ++sum_);
}

std::uint32_t MinuteRate::At(std::int64_t second) const {
  std::uint32_t sum = 0;
  for (std::int64_t i = std::max(second, latest_) - kSeconds + 1; i <= latest_;
       ++i) {
    sum += i < 0 ? 0 : counts_[static_cast<std::size_t>(i % kSeconds)];
  }
  return sum;
}

const char* Describe(ItemState state) {
  switch (state) {
    case ItemState::kRunning:
      return "running";
    case ItemState::kPausing:
      return "pausing";
    case ItemState::kLooping:
      return "looping";
    case ItemState::kSilent:
      return "silent";
    case ItemState::kNoFork:
      return "no fork";
    case ItemState::kNoProgram:
      return "no path";
    case ItemState::kChain:
      break;
  }
  return "chain";
}

std::uint64_t ItemHistory::Starts() const {
  return HasDerivedStarts() ? ends : logged_starts;
}

ItemState ItemHistory::StateAt(LogMicros now) const {
  if (last_by_copy && last_kind == LogEventKind::kStart) {
    return ItemState::kChain;
  }
  if (last_kind == LogEventKind::kForkFailed) {
    return ItemState::kNoFork;
  }
  if (last_kind == LogEventKind::kNoProgram) {
    return ItemState::kNoProgram;
  }
  const bool paused = last_kind == LogEventKind::kEnd && last_logs_starts;
  const bool overdue = now - last_time > kRestartSeen;
  if (paused && overdue) {
    return ItemState::kSilent;
  }
  if (rate.At(now / kMicrosPerSecond) >= kLoopingPerMinute) {
    return ItemState::kLooping;
  }
  if (paused) {
    return ItemState::kPausing;
  }
  // By rule it has been started again. The rule ends with the launcher, which
  // kills its programs.
  const bool killed = WaitStatus(last_status).signal == SIGKILL;
  return HasDerivedState() && overdue && killed ? ItemState::kSilent
                                                : ItemState::kRunning;
}

bool ItemHistory::HasDerivedState() const {
  return last_kind == LogEventKind::kEnd && !last_logs_starts;
}

void History::Add(const LogEvent& event) {
  first_ = lines_ == 0 ? event.time : std::min(first_, event.time);
  last_ = std::max(last_, event.time);
  ++lines_;
  switch (event.kind) {
    case LogEventKind::kStart:
    case LogEventKind::kEnd:
    case LogEventKind::kForkFailed:
    case LogEventKind::kNoProgram:
      AddItemEvent(event);
      break;
    case LogEventKind::kNameless:
      ++nameless_;
      SeeLauncher(event);
      break;
    case LogEventKind::kUnparsable:
      ++unparsable_;
      SeeLauncher(event);
      break;
    case LogEventKind::kLost:
      lost_ += event.lost;
      break;
    case LogEventKind::kOther:
      break;
  }
}

void History::AddItemEvent(const LogEvent& event) {
  const std::size_t index = Find(event.name);
  ItemHistory& item = items_[index];
  if (!IsFromCopy(event)) {
    SeeLauncher(event);
  }
  if (event.kind == LogEventKind::kStart) {
    AddStart(&item, event);
  } else if (event.kind == LogEventKind::kEnd) {
    AddEnd(index, event);
  } else if (event.kind == LogEventKind::kForkFailed) {
    ++item.failed_forks;
  }
  item.last_time = event.time;
  item.last_kind = event.kind;
  item.last_by_copy = IsFromCopy(event);
}

std::size_t History::Find(std::string_view name) {
  const auto found = indices_.find(name);
  if (found != indices_.end()) {
    return found->second;
  }
  const std::size_t index = items_.size();
  indices_.emplace(name, index);
  items_.emplace_back().name = name;
  return index;
}

Supervisor* History::FindSupervisor(ItemHistory* item, const LogEvent& event) {
  auto& all = item->supervisors;
  const auto found = std::ranges::find_if(all, [&](const Supervisor& one) {
    return one.thread == event.thread && one.process == event.process;
  });
  if (found != all.end()) {
    found->last = event.time;
    return &*found;
  }
  if (all.size() == kMaxSupervisors) {
    all.erase(std::ranges::min_element(all, {}, &Supervisor::last));
  }
  all.push_back({event.process, event.thread, {}, false, event.time});
  return &all.back();
}

void History::AddStart(ItemHistory* item, const LogEvent& event) {
  if (IsFromCopy(event)) {
    ++item->copies;
    return;
  }
  ++item->logged_starts;
  Supervisor* const supervisor = FindSupervisor(item, event);
  supervisor->start = event.time;
  supervisor->logs_starts = true;
}

void History::AddEnd(std::size_t index, const LogEvent& event) {
  ItemHistory& item = items_[index];
  Supervisor* const supervisor = FindSupervisor(&item, event);
  ++item.ends;
  item.last_end = event.time;
  item.last_status = event.status;
  item.last_logs_starts = supervisor->logs_starts;
  item.rate.Add(event.time / kMicrosPerSecond);
  if (supervisor->start) {
    const LogMicros life =
        std::max<LogMicros>(event.time - *supervisor->start, 0);
    item.longest = std::max(item.longest.value_or(0), life);
  }
  if (on_run_) {
    on_run_({index, supervisor->start, event.time, event.status});
  }
  supervisor->start.reset();
  if (!supervisor->logs_starts) {
    supervisor->start = event.time + kRestartPause;
  }
}

void History::SeeLauncher(const LogEvent& event) {
  const auto found = launchers_.find(event.process);
  if (found != launchers_.end()) {
    found->second.last = std::max(found->second.last, event.time);
    return;
  }
  ++launcher_count_;
  if (launchers_.size() == kMaxLaunchers) {
    launchers_.erase(std::ranges::min_element(
        launchers_, {}, [](const auto& entry) { return entry.second.last; }));
  }
  launchers_[event.process] = {event.process, event.time, event.time};
}

std::vector<LauncherSeen> History::Launchers() const {
  std::vector<LauncherSeen> launchers;
  for (const auto& [process, launcher] : launchers_) {
    launchers.push_back(launcher);
  }
  std::ranges::sort(launchers, {}, &LauncherSeen::last);
  return launchers;
}
