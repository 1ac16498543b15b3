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

// Whether the item's program runs, or will within the restart pause.
bool IsUp(ItemState state) {
  return state == ItemState::kRunning || state == ItemState::kLooping;
}

ItemNow ItemAt(const ItemHistory& item, Micros now, bool launcher_exists) {
  ItemState state = item.StateAt(now);
  if (!launcher_exists && IsUp(state)) {
    state = ItemState::kGone;
  } else if (!launcher_exists && state == ItemState::kPausing) {
    state = ItemState::kSilent;
  }
  const auto start = IsUp(state) ? item.RunStart() : std::nullopt;
  const auto uptime = start ? std::optional(now - *start) : std::nullopt;
  return {item, state, uptime, std::max(item.longest_ended, uptime)};
}

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
  if (last.kind == LogEventKind::kStart && last.IsFromForkedChild()) {
    return ItemState::kChain;
  }
  if (last.kind == LogEventKind::kForkFailed) {
    return ItemState::kNoFork;
  }
  if (last.kind == LogEventKind::kNoProgram) {
    return ItemState::kNoProgram;
  }
  const bool paused = last.kind == LogEventKind::kEnd && last_logs_starts;
  const bool overdue = now - last.time > kRestartSeen;
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
  const bool killed = WaitStatus(last_end.status).signal == SIGKILL;
  return HasDerivedState() && overdue && killed ? ItemState::kSilent
                                                : ItemState::kRunning;
}

bool ItemHistory::HasDerivedState() const {
  return last.kind == LogEventKind::kEnd && !last_logs_starts;
}

std::optional<Micros> ItemHistory::RunStart() const {
  const auto latest =
      std::ranges::max_element(supervisors, {}, &Supervisor::last);
  return latest == supervisors.end() ? std::nullopt : latest->start;
}

History::History(Selection selection, bool has_timeline)
    : selection_(std::move(selection)), has_timeline_(has_timeline) {}

bool History::Add(const LogEvent& event) {
  totals_.has_lines = true;
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
  if (all.lines == 0) {
    all.first = event.time;
    timeline_.origin = event.time;
  }
  all.first = std::min(all.first, event.time);
  all.last = std::max(all.last, event.time);
  ++all.lines;
  all.lost += event.lost;
  all.lost_error = event.lost > 0 ? event.error : all.lost_error;
  all.cut += event.kind == LogEventKind::kCut;
  all.nameless += event.kind == LogEventKind::kNameless;
  all.parse_failed += event.kind == LogEventKind::kParseFailed;
}

void History::AddItemEvent(LogEvent event, bool counts) {
  ItemHistory& item = Find(event.name);
  event.name = {};  // The line that it points into is about to go.
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
  item.last = event;
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
  item.last_end = event;
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
  if (has_timeline_) {
    if (start) {
      timeline_.AddRun(item.index, *start, event.time);
    }
    timeline_.AddEnd(item.index, event.time, WaitStatus(event.status).Cause());
  }
}

void History::SeeLauncher(const LogEvent& event) {
  if (!launchers_.contains(event.process)) {
    ++totals_.launchers;
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

std::vector<ItemNow> History::Items(const Present& present) const {
  const auto launchers = Launchers();
  const std::int64_t last = launchers.empty() ? 0 : launchers.back().process;
  std::vector<ItemNow> items;
  for (const ItemHistory& item : items_) {
    const bool launcher_exists = present.exists(item.launcher);
    if (!selection_.since || item.last.time >= *selection_.since ||
        item.launcher == last || launcher_exists) {
      items.push_back(ItemAt(item, present.now, launcher_exists));
    }
  }
  return items;
}

void History::AddOpenRuns() {
  if (totals_.lines == 0) {
    return;  // No line shows until when they ran.
  }
  for (const ItemHistory& item : items_) {
    const auto start = item.RunStart();
    if (start && IsUp(item.StateAt(totals_.last))) {
      timeline_.AddRun(item.index, *start, totals_.last);
    }
  }
}

std::vector<std::string> History::UnknownNames() const {
  std::set<std::string> names = selection_.names;
  for (const ItemHistory& item : items_) {
    names.erase(Unescaped(item.name));
  }
  return {names.begin(), names.end()};
}
