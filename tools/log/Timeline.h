// When items ran and ended, for a picture: a lane of columns for each item.
//
// There is a fixed number of columns. When the time outgrows them, two become
// one, so memory grows with the items and not with the log.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>

#include "tools/log/History.h"

class Timeline {
 public:
  static constexpr std::size_t kColumns = 1024;

  struct Cell {
    bool ran = false;
    std::array<std::uint32_t, kEndCauses> ends{};  // by cause

    void Add(const Cell& other);
    std::uint32_t Ends() const;
  };
  using Lane = std::array<Cell, kColumns>;

  // Time begins at `time`; earlier times count as that.
  void Begin(LogMicros time) { origin_ = time; }

  void Add(const ProgramRun& run);
  // Adds what still runs, up to the end of `history`.
  void AddOpenRuns(const History& history);

  LogMicros Origin() const { return origin_; }
  LogMicros ColumnStart(std::size_t column) const;
  // The item's lane; null when it has neither run nor ended.
  const Lane* Find(std::size_t item) const;

 private:
  std::size_t Column(LogMicros time);
  void Fold();
  void Fill(std::size_t item, LogMicros start, LogMicros end);

  std::map<std::size_t, Lane> lanes_;
  LogMicros origin_ = 0;
  LogMicros column_ = 1000;  // a column's span
};
