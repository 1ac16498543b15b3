#include "tools/log/Timeline.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <numeric>

void Timeline::Ends::Add(const Ends& other) {
  std::ranges::transform(counts, other.counts, counts.begin(), std::plus());
}

std::uint32_t Timeline::Ends::Sum() const {
  return std::reduce(counts.begin(), counts.end());
}

void Timeline::Lane::Add(Run run) {
  const auto begin = std::ranges::lower_bound(
      runs, run.first, {}, [](const Run& before) { return before.last + 1; });
  const auto end = std::ranges::upper_bound(begin, runs.end(), run.last + 1, {},
                                            &Run::first);
  if (begin != end) {
    run.first = std::min(run.first, begin->first);
    run.last = std::max(run.last, std::prev(end)->last);
  }
  runs.insert(runs.erase(begin, end), run);
}

void Timeline::Lane::Add(const Ends& more) {
  const auto at =
      std::ranges::lower_bound(ends, more.column, {}, &Ends::column);
  if (at != ends.end() && at->column == more.column) {
    at->Add(more);
  } else {
    ends.insert(at, more);
  }
}

void Timeline::Add(const ProgramRun& run) {
  if (run.start) {
    Fill(run.item, *run.start, run.end);
  }
  Ends ends{Column(run.end)};
  ends.counts[static_cast<std::size_t>(WaitStatus(run.status).Cause())] = 1;
  lanes_[run.item].Add(ends);
}

void Timeline::AddOpenRuns(const History& history) {
  for (const ItemHistory& item : history.AllItems()) {
    const auto start = item.RunStart();
    if (start && IsUp(item.StateAt(history.Totals().last))) {
      Fill(item.index, *start, history.Totals().last);
    }
  }
}

LogMicros Timeline::ColumnStart(std::size_t column) const {
  return origin_ + static_cast<LogMicros>(column) * column_;
}

const Timeline::Lane& Timeline::Find(std::size_t item) const {
  static const Lane kEmpty{};
  const auto lane = lanes_.find(item);
  return lane == lanes_.end() ? kEmpty : lane->second;
}

std::size_t Timeline::Column(LogMicros time) {
  const LogMicros past = std::max<LogMicros>(time - origin_, 0);
  while (past / column_ >= static_cast<LogMicros>(kColumns)) {
    Fold();
  }
  return static_cast<std::size_t>(past / column_);
}

void Timeline::Fold() {
  column_ *= 2;
  for (auto& [item, lane] : lanes_) {
    Lane folded;
    for (const Run& run : lane.runs) {
      folded.Add(Run{run.first / 2, run.last / 2});
    }
    for (const Ends& ends : lane.ends) {
      folded.Add(Ends{ends.column / 2, ends.counts});
    }
    lane = folded;
  }
}

void Timeline::Fill(std::size_t item, LogMicros start, LogMicros end) {
  const std::size_t last = Column(std::max(start, end));
  lanes_[item].Add(Run{Column(start), last});
}
