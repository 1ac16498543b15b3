#include "tools/log/Timeline.h"

#include <algorithm>
#include <numeric>

void Timeline::Cell::Add(const Cell& other) {
  ran |= other.ran;
  for (std::size_t cause = 0; cause < ends.size(); ++cause) {
    ends[cause] += other.ends[cause];
  }
}

std::uint32_t Timeline::Cell::Ends() const {
  return std::reduce(ends.begin(), ends.end());
}

void Timeline::Add(const ProgramRun& run) {
  if (run.start) {
    Fill(run.item, *run.start, run.end);
  }
  const auto cause = static_cast<std::size_t>(WaitStatus(run.status).Cause());
  const std::size_t column = Column(run.end);
  ++lanes_[run.item][column].ends[cause];
}

void Timeline::AddOpenRuns(const History& history) {
  for (const ItemHistory& item : history.AllItems()) {
    const ItemState state = item.StateAt(history.Last());
    const auto start = item.RunStart();
    if (start &&
        (state == ItemState::kRunning || state == ItemState::kLooping)) {
      Fill(item.index, *start, history.Last());
    }
  }
}

LogMicros Timeline::ColumnStart(std::size_t column) const {
  return origin_ + static_cast<LogMicros>(column) * column_;
}

const Timeline::Lane* Timeline::Find(std::size_t item) const {
  const auto lane = lanes_.find(item);
  return lane == lanes_.end() ? nullptr : &lane->second;
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
    Lane folded{};
    for (std::size_t i = 0; i < kColumns; ++i) {
      folded[i / 2].Add(lane[i]);
    }
    lane = folded;
  }
}

void Timeline::Fill(std::size_t item, LogMicros start, LogMicros end) {
  const std::size_t last = Column(std::max(start, end));
  Lane& lane = lanes_[item];
  for (std::size_t i = Column(start); i <= last; ++i) {
    lane[i].ran = true;
  }
}
