// When items ran and ended, for a picture: a lane for each item.
//
// Time is cut into a fixed number of columns. When it outgrows them, two become
// one. A lane holds only the columns in which something happened, so memory
// grows with the items and not with the log.

#pragma once

#include <array>
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
  // The ends in a column.
  struct Ends {
    std::size_t column;
    std::array<std::uint32_t, kEndCauses> counts{};  // by cause

    void Add(const Ends& other);
    std::uint32_t Sum() const;
  };
  // Both in the order of time. Runs that touch are one.
  struct Lane {
    std::vector<Run> runs;
    std::vector<Ends> ends;

    void Add(Run run);
    void Add(const Ends& more);
  };

  // Time begins at `time`; earlier times count as that.
  void Begin(LogMicros time) { origin_ = time; }

  void Add(const ProgramRun& run);
  // Adds what still runs, up to the end of `history`.
  void AddOpenRuns(const History& history);

  LogMicros Origin() const { return origin_; }
  LogMicros ColumnStart(std::size_t column) const;
  // The item's lane; empty when it has neither run nor ended.
  const Lane& Find(std::size_t item) const;

 private:
  std::size_t Column(LogMicros time);
  void Fold();
  void Fill(std::size_t item, LogMicros start, LogMicros end);

  std::map<std::size_t, Lane> lanes_;
  LogMicros origin_ = 0;
  LogMicros column_ = 1000;  // a column's span
};
