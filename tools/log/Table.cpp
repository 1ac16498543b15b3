#include "tools/log/Table.h"

#include <algorithm>

#include "tools/text/Characters.h"

namespace {

// The blanks before a column other than the first: more before text.
std::size_t Gap(const TableColumn& column) {
  return column.is_right_aligned ? 1 : 2;
}

using Widths = std::vector<std::size_t>;

Widths FittedWidths(const std::vector<TableColumn>& columns, Widths widths,
                    std::size_t width) {
  std::size_t used = widths[0];
  for (std::size_t i = 1; i < widths.size(); ++i) {
    used += Gap(columns[i]) + widths[i];
  }
  for (std::size_t i = widths.size(); i-- > 0 && used > width;) {
    const std::size_t least = std::min(columns[i].least_width, widths[i]);
    const std::size_t cut = std::min(used - width, widths[i] - least);
    widths[i] -= cut;
    used -= cut;
  }
  return widths;
}

// No blanks follow the last column.
std::string Line(const std::vector<TableColumn>& columns, const TableRow& row,
                 const Widths& widths) {
  std::string line;
  for (std::size_t i = 0; i < row.size(); ++i) {
    const std::string text = Cut(row[i], widths[i]);
    const std::string fill(widths[i] - DisplayWidth(text), ' ');
    line.append(i == 0 ? 0 : Gap(columns[i]), ' ');
    line += columns[i].is_right_aligned ? fill + text : text + fill;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line + "\n";
}

}  // namespace

std::string TableText(const std::vector<TableColumn>& columns,
                      std::vector<TableRow> rows, std::size_t width) {
  TableRow& headings = *rows.emplace(rows.begin());
  for (const TableColumn& column : columns) {
    headings.emplace_back(column.heading);
  }
  Widths widths(columns.size());
  for (const TableRow& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], DisplayWidth(row[i]));
    }
  }
  widths = FittedWidths(columns, widths, width);
  std::string text;
  for (const TableRow& row : rows) {
    text += Line(columns, row, widths);
  }
  return text;
}
