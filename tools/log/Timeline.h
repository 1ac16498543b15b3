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

#include "tools/log/History.h"

struct Timeline {
  static constexpr std::size_t kColumns = 1024;

  // The number of ends for each cause.
  using Ends = std::array<std::uint32_t, kEndCauses>;

  struct Lane {
    std::bitset<kColumns> ran;         // the columns in which the item ran
    std::map<std::size_t, Ends> ends;  // by column
  };

  void Add(const ProgramRun& run);
  // Adds runs that have not ended, up to the end of `history`.
  void AddOpenRuns(const History& history);
  Micros ColumnStart(std::size_t column) const;

  Micros origin = 0;  // earlier times count as this one
  Micros column_span = 1000;
  std::map<std::size_t, Lane> lanes;  // by item

 private:
  std::size_t Column(Micros time);
  void Fold();
  void AddRun(std::size_t item, Micros start, Micros end);
};

// Adds `more` to `ends`, cause by cause.
void AddEnds(Timeline::Ends& ends, const Timeline::Ends& more);
