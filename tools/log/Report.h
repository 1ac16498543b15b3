// Reports a log's history to people and to programs.

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

  // The table, with its source above it and remarks below it. Cuts names and
  // causes so that lines have at most `width` columns.
  std::string Table(std::size_t width) const;

  // A line for each kind of trouble; empty when all is well.
  std::string Alerts(std::size_t width) const;

  // A JSON document.
  std::string Json() const;
};

// One event in words, with a line feed; empty for an unknown message.
std::string EventLine(const LogEvent& event);
