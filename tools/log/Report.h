// A log's history, for people and for machines.

#pragma once

#include <string>
#include <vector>

#include "tools/log/History.h"

// The table, which fits 80 columns, below it what one should know about, and
// above it where it comes from. Spans of time end at `now`.
std::string TableReport(const std::vector<std::string>& files,
                        const History& history, LogMicros now);

// A JSON document.
std::string JsonReport(const std::vector<std::string>& files,
                       const History& history, LogMicros now);

// One event in words, with a line feed; empty for what is not told.
std::string EventLine(const LogEvent& event);
