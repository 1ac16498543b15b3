#include "tools/log/Timeline.h"

#include <algorithm>

void Timeline::AddRun(std::size_t item, Micros start, Micros end) {
  const std::size_t last = Column(std::max(start, end));
  for (std::size_t column = Column(start); column <= last; ++column) {
    lanes[item].ran.set(column);
  }
}

void Timeline::AddEnd(std::size_t item, Micros time, EndCause cause) {
  const std::size_t column = Column(time);
  ++lanes[item].ends[{column, cause}];
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
    for (const auto& [key, count] : lane.ends) {
      folded.ends[{key.first / 2, key.second}] += count;
    }
    lane = std::move(folded);
  }
}
