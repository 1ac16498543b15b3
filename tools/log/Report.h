// A log's history, for people and for machines.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/log/History.h"

// A history and the circumstances that a report of it needs.
struct Report {
  const History& history;
  std::string path;                // of the log
  std::vector<std::string> files;  // those that were read, the oldest first
  Present present;

  // The table, with where it comes from above it and the remarks below it. On a
  // line of at most `width` columns, names and causes are cut where there is no
  // room for them.
  std::string Table(std::size_t width) const;

  // A line for each kind of trouble; empty when all is well.
  std::string Alerts(std::size_t width) const;

  // A JSON document.
  std::string Json() const;
};

// One event in words, with a line feed; empty for a message that is not known.
std::string EventLine(const LogEvent& event);
