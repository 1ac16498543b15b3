#include "tools/log/Timeline.h"

#include <algorithm>
#include <functional>
#include <utility>

void AddEnds(Timeline::Ends& ends, const Timeline::Ends& more) {
  std::ranges::transform(ends, more, ends.begin(), std::plus());
}

std::vector<Timeline::Run> Timeline::Lane::Runs() const {
  std::vector<Run> runs;
  for (std::size_t column = 0; column < kColumns; ++column) {
    if (!ran[column]) {
      continue;
    }
    if (runs.empty() || runs.back().last + 1 < column) {
      runs.push_back({column, column});
    }
    runs.back().last = column;
  }
  return runs;
}

void Timeline::Add(const ProgramRun& run) {
  if (run.start) {
    AddRun(run.item, *run.start, run.end);
  }
  const EndCause cause = WaitStatus(run.status).Cause();
  const std::size_t column = Column(run.end);
  ++lanes_[run.item].ends[column][static_cast<std::size_t>(cause)];
}

void Timeline::AddOpenRuns(const History& history) {
  for (const ItemHistory& item : history.AllItems()) {
    const auto start = item.RunStart();
    if (start && IsUp(item.StateAt(history.Totals().last))) {
      AddRun(item.index, *start, history.Totals().last);
    }
  }
}

Micros Timeline::ColumnStart(std::size_t column) const {
  return origin_ + static_cast<Micros>(column) * column_;
}

const Timeline::Lane& Timeline::Find(std::size_t item) const {
  static const Lane kEmpty{};
  const auto lane = lanes_.find(item);
  return lane == lanes_.end() ? kEmpty : lane->second;
}

std::size_t Timeline::Column(Micros time) {
  const Micros past = std::max<Micros>(time - origin_, 0);
  while (past / column_ >= static_cast<Micros>(kColumns)) {
    Fold();
  }
  return static_cast<std::size_t>(past / column_);
}

void Timeline::Fold() {
  column_ *= 2;
  for (auto& [item, lane] : lanes_) {
    Lane folded;
    for (std::size_t column = 0; column < kColumns; ++column) {
      folded.ran[column / 2] = folded.ran[column / 2] || lane.ran[column];
    }
    for (const auto& [column, ends] : lane.ends) {
      AddEnds(folded.ends[column / 2], ends);
    }
    lane = std::move(folded);
  }
}

void Timeline::AddRun(std::size_t item, Micros start, Micros end) {
  const std::size_t last = Column(std::max(start, end));
  for (std::size_t column = Column(start); column <= last; ++column) {
    lanes_[item].ran.set(column);
  }
}
