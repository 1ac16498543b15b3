// Showing a status, to people and to programs.

#pragma once

#include <string>

#include "tools/status/Status.h"

// A table in 80 columns for each launcher.
std::string TableReport(const Status& status, bool coloured);

// A JSON document.
std::string JsonReport(const Status& status);

// "running", "chain of 12 processes"
std::string StateText(const ItemStatus& item);

// A span in at most six columns: "9.9s", "59m59s", "23h59m", "99d23h", "100d".
std::string SpanText(std::chrono::milliseconds span);

// Memory in at most six columns: "980K", "12.3M", "1.5G".
std::string MemoryText(std::uint64_t bytes);
