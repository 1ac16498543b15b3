// A table of text in columns, for a terminal or a pipe.

#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

// The width for lines that are never cut.
inline constexpr std::size_t kAnyWidth =
    std::numeric_limits<std::size_t>::max();

using TableRow = std::vector<std::string>;

struct TableColumn {
  const char* heading;
  bool is_right_aligned;
  // The width below which the column is never cut; `kAnyWidth` to leave it
  // whole.
  std::size_t least_width;
};

// The rows below the headings, all of printable text, each column as wide as
// its widest cell. If a line would be wider than `width`, cuts the columns that
// may be cut, the first of them last.
std::string TableText(const std::vector<TableColumn>& columns,
                      std::vector<TableRow> rows, std::size_t width);
