// When items ran and ended, for a picture: a lane for each item.
//
// Time is divided into a fixed number of columns. When it outgrows them, each
// two become one, so memory grows with the items and not with the log.

#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

#include "tools/log/LogLine.h"

struct Timeline {
  static constexpr std::size_t kColumns = 1024;

  // How many ends a column has for a cause.
  using Ends = std::map<std::pair<std::size_t, EndCause>, std::uint32_t>;

  struct Lane {
    std::bitset<kColumns> ran;  // the columns in which the item ran
    Ends ends;
  };

  void AddRun(std::size_t item, Micros start, Micros end);
  void AddEnd(std::size_t item, Micros time, EndCause cause);
  Micros ColumnStart(std::size_t column) const;

  Micros origin = 0;  // earlier times count as this one
  Micros column_span = 1000;
  std::map<std::size_t, Lane> lanes;  // by item

 private:
  std::size_t Column(Micros time);
  void Fold();
};
