#include "tools/log/Timeline.h"

#include <algorithm>
#include <functional>
#include <utility>

void AddEnds(Timeline::Ends& ends, const Timeline::Ends& more) {
  std::ranges::transform(ends, more, ends.begin(), std::plus());
}

void Timeline::Add(const ProgramRun& run) {
  if (run.start) {
    AddRun(run.item, *run.start, run.end);
  }
  const EndCause cause = WaitStatus(run.status).Cause();
  const std::size_t column = Column(run.end);
  ++lanes[run.item].ends[column][static_cast<std::size_t>(cause)];
}

void Timeline::AddRun(std::size_t item, Micros start, Micros end) {
  const std::size_t last = Column(std::max(start, end));
  for (std::size_t column = Column(start); column <= last; ++column) {
    lanes[item].ran.set(column);
  }
}

void Timeline::AddOpenRuns(const History& history) {
  const Micros end = history.Totals().last;
  for (const ItemHistory& item : history.AllItems()) {
    const auto start = item.RunStart();
    if (start && IsUp(item.StateAt(end))) {
      AddRun(item.index, *start, end);
    }
  }
}

Micros Timeline::ColumnStart(std::size_t column) const {
  return origin + static_cast<Micros>(column) * column_span;
}

std::size_t Timeline::Column(Micros time) {
  const Micros past = std::max<Micros>(time - origin, 0);
  while (past / column_span >= static_cast<Micros>(kColumns)) {
    Fold();
  }
  return static_cast<std::size_t>(past / column_span);
}

void Timeline::Fold() {
  column_span *= 2;
  for (auto& [item, lane] : lanes) {
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
