// When items ran and ended, for a picture: a lane for each item.
//
// Time is divided into a fixed number of columns. When it outgrows them, each
// two become one, so memory grows with the items and not with the log.

#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "tools/log/History.h"

class Timeline {
 public:
  static constexpr std::size_t kColumns = 1024;

  // Columns, the last one included.
  struct Run {
    std::size_t first;
    std::size_t last;
  };

  // The number of ends for each cause.
  using Ends = std::array<std::uint32_t, kEndCauses>;

  struct Lane {
    std::bitset<kColumns> ran;         // the columns in which the item ran
    std::map<std::size_t, Ends> ends;  // by column

    // In the order of time. Those that touch are one.
    std::vector<Run> Runs() const;
  };

  // Time begins at `time`; earlier times count as that.
  void Begin(Micros time) { origin_ = time; }

  void Add(const ProgramRun& run);
  // Adds runs that have not ended, up to the end of `history`.
  void AddOpenRuns(const History& history);

  Micros Origin() const { return origin_; }
  Micros ColumnStart(std::size_t column) const;
  // The item's lane; empty if it has neither run nor ended.
  const Lane& Find(std::size_t item) const;

 private:
  std::size_t Column(Micros time);
  void Fold();
  void AddRun(std::size_t item, Micros start, Micros end);

  std::map<std::size_t, Lane> lanes_;
  Micros origin_ = 0;
  Micros column_ = 1000;  // a column's span
};

// Adds `more` to `ends`, cause by cause.
void AddEnds(Timeline::Ends& ends, const Timeline::Ends& more);
