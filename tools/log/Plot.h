// A picture of a log: one lane per item over time, with a bar while its program
// ran and a mark where it ended.
//
// The picture has a fixed number of columns. When the time outgrows them, two
// become one, so memory grows with the items and not with the log.

#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/log/History.h"
#include "tools/log/WaitStatus.h"

class Plot {
 public:
  // Time begins at `time`; what was before is shown there.
  void Begin(LogMicros time) { origin_ = time; }

  void Add(const ProgramRun& run);

  // The picture as SVG. `history` tells the lanes' names and what still runs.
  std::string Svg(const History& history);

 private:
  static constexpr std::size_t kColumns = 1024;

  struct Cell {
    bool ran = false;
    std::array<std::uint32_t, kEndCauses> ends{};
  };
  using Lane = std::array<Cell, kColumns>;

  std::size_t Column(LogMicros time);
  void Fold();
  Lane& LaneOf(std::size_t item);
  void Fill(std::size_t item, LogMicros start, LogMicros end);
  void FillOpenRuns(const History& history);

  std::vector<Lane> lanes_;
  LogMicros origin_ = 0;
  LogMicros column_ = 1000;  // a column's span

  friend class SvgWriter;
};
