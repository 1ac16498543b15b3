#include "tools/log/History.h"

#include <algorithm>
#include <csignal>
#include <utility>

#include "launcher/Items.h"

namespace {

constexpr Micros kPause = std::chrono::microseconds(kRestartPause).count();

// An item that has not started again after this long will not.
constexpr Micros kRestartSeen = kMicrosPerSecond;

constexpr std::int64_t kMinuteSeconds = 60;
constexpr std::uint32_t kLoopingPerMinute = 5;

// More launchers than this run an item of one name only in the long run.
constexpr std::size_t kMaxSupervisors = 16;
constexpr std::size_t kMaxLaunchers = 256;

}  // namespace

void MinuteRate::Add(std::int64_t second) {
  if (seconds_.empty() || seconds_.back().second < second) {
    std::erase_if(seconds_, [&](const Second& one) {
      return one.second <= second - kMinuteSeconds;
    });
    seconds_.push_back({second, 0});
  }
  ++seconds_.back().events;
  worst_ = std::max(worst_, At(seconds_.back().second));
}

std::uint64_t MinuteRate::At(std::int64_t second) const {
  std::uint64_t sum = 0;
  for (const Second& one : seconds_) {
    sum += one.second > second - kMinuteSeconds ? one.events : 0;
  }
  return sum;
}

ItemState ItemHistory::StateAt(Micros now) const {
  if (last_by_child && last_kind == LogEventKind::kStart) {
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
  // By rule it was started again, unless its launcher has stopped, which
  // kills the programs.
  const bool killed = WaitStatus(last_status).signal == SIGKILL;
  return HasDerivedState() && overdue && killed ? ItemState::kSilent
                                                : ItemState::kRunning;
}

ItemState ItemHistory::StateAt(const Present& present) const {
  const ItemState state = StateAt(present.now);
  const bool goes_on = IsUp(state) || state == ItemState::kPausing;
  if (!goes_on || present.exists(launcher)) {
    return state;
  }
  return IsUp(state) ? ItemState::kGone : ItemState::kSilent;
}

bool ItemHistory::HasDerivedState() const {
  return last_kind == LogEventKind::kEnd && !last_logs_starts;
}

std::optional<Micros> ItemHistory::RunStart() const {
  const auto latest =
      std::ranges::max_element(supervisors, {}, &Supervisor::last);
  return latest == supervisors.end() ? std::nullopt : latest->start;
}

std::optional<Micros> ItemHistory::Uptime(const Present& present) const {
  const auto start = IsUp(StateAt(present)) ? RunStart() : std::nullopt;
  return start ? std::optional(present.now - *start) : std::nullopt;
}

std::optional<Micros> ItemHistory::Longest(const Present& present) const {
  return std::max(longest_ended, Uptime(present));
}

History::History(Selection selection, RunSink on_run)
    : selection_(std::move(selection)), on_run_(std::move(on_run)) {}

bool History::Add(const LogEvent& event) {
  has_lines_ = true;
  totals_.unrecognised += event.fragments;
  if (event.IsAboutItem() && !selection_.names.empty() &&
      !selection_.names.contains(Unescaped(event.name))) {
    return false;
  }
  const bool counts = !selection_.since || event.time >= *selection_.since;
  if (counts) {
    Count(event);
  }
  if (event.IsAboutItem()) {
    AddItemEvent(event, counts);
  } else if (event.kind == LogEventKind::kNameless ||
             event.kind == LogEventKind::kParseFailed) {
    SeeLauncher(event);
  }
  return counts;
}

void History::Count(const LogEvent& event) {
  LogTotals& all = totals_;
  all.first = all.lines == 0 ? event.time : std::min(all.first, event.time);
  all.last = std::max(all.last, event.time);
  ++all.lines;
  all.lost += event.lost;
  all.lost_error = event.lost > 0 ? event.error : all.lost_error;
  all.cut += event.kind == LogEventKind::kCut;
  all.nameless += event.kind == LogEventKind::kNameless;
  all.parse_failed += event.kind == LogEventKind::kParseFailed;
}

void History::AddItemEvent(const LogEvent& event, bool counts) {
  ItemHistory& item = Find(event.name);
  if (!event.IsFromForkedChild()) {
    SeeLauncher(event);
    item.launcher = event.process;
  }
  if (event.kind == LogEventKind::kStart) {
    AddStart(item, event, counts);
  } else if (event.kind == LogEventKind::kEnd) {
    AddEnd(item, event, counts);
  } else if (event.kind == LogEventKind::kForkFailed && counts) {
    ++item.failed_forks;
  }
  item.last_time = event.time;
  item.last_kind = event.kind;
  item.last_by_child = event.IsFromForkedChild();
}

ItemHistory& History::Find(std::string_view name) {
  const auto found = indices_.find(name);
  if (found != indices_.end()) {
    return items_[found->second];
  }
  ItemHistory& item = items_.emplace_back();
  item.name = name;
  item.index = items_.size() - 1;
  indices_.emplace(name, item.index);
  return item;
}

Supervisor& History::FindSupervisor(ItemHistory& item, const LogEvent& event) {
  auto& all = item.supervisors;
  const auto found = std::ranges::find_if(all, [&](const Supervisor& one) {
    return one.thread == event.thread && one.process == event.process;
  });
  if (found != all.end()) {
    found->last = event.time;
    return *found;
  }
  if (all.size() == kMaxSupervisors) {
    all.erase(std::ranges::min_element(all, {}, &Supervisor::last));
  }
  all.push_back({event.process, event.thread, {}, false, event.time});
  return all.back();
}

void History::AddStart(ItemHistory& item, const LogEvent& event, bool counts) {
  if (event.IsFromForkedChild()) {
    item.chained_starts += counts;
    return;
  }
  item.logs_starts = true;
  item.logged_starts += counts;
  Supervisor& supervisor = FindSupervisor(item, event);
  supervisor.start = event.time;
  supervisor.logs_starts = true;
}

void History::AddEnd(ItemHistory& item, const LogEvent& event, bool counts) {
  Supervisor& supervisor = FindSupervisor(item, event);
  const auto start = supervisor.start;
  item.last_end = event.time;
  item.last_status = event.status;
  item.last_logs_starts = supervisor.logs_starts;
  supervisor.start = supervisor.logs_starts
                         ? std::nullopt
                         : std::optional(event.time + kPause);
  if (!counts) {
    return;
  }
  ++item.ends;
  ++item.statuses[event.status];
  item.rate.Add(event.time / kMicrosPerSecond);
  if (start) {
    const Micros life = std::max<Micros>(event.time - *start, 0);
    item.longest_ended = std::max(item.longest_ended.value_or(0), life);
  }
  if (on_run_) {
    on_run_({item.index, start, event.time, event.status});
  }
}

void History::SeeLauncher(const LogEvent& event) {
  if (!launchers_.contains(event.process)) {
    ++launcher_count_;
    if (launchers_.size() == kMaxLaunchers) {
      launchers_.erase(std::ranges::min_element(
          launchers_, {}, [](const auto& entry) { return entry.second.last; }));
    }
    launchers_[event.process] = {event.process, event.time, event.time};
  }
  LauncherSeen& launcher = launchers_[event.process];
  launcher.last = std::max(launcher.last, event.time);
  launcher.logs_starts |= event.kind == LogEventKind::kStart;
}

std::vector<LauncherSeen> History::Launchers() const {
  std::vector<LauncherSeen> launchers;
  for (const auto& [process, launcher] : launchers_) {
    launchers.push_back(launcher);
  }
  std::ranges::sort(launchers, {}, &LauncherSeen::last);
  return launchers;
}

std::vector<const ItemHistory*> History::Items(const Present& present) const {
  const auto launchers = Launchers();
  const std::int64_t last = launchers.empty() ? 0 : launchers.back().process;
  std::vector<const ItemHistory*> items;
  for (const ItemHistory& item : items_) {
    if (!selection_.since || item.last_time >= *selection_.since ||
        item.launcher == last || present.exists(item.launcher)) {
      items.push_back(&item);
    }
  }
  return items;
}

std::vector<std::string> History::UnknownNames() const {
  std::set<std::string> names = selection_.names;
  for (const ItemHistory& item : items_) {
    names.erase(Unescaped(item.name));
  }
  return {names.begin(), names.end()};
}
