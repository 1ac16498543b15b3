// Reports a status to people and to programs.

#pragma once

#include <string>

#include "tools/status/Status.h"

// A table in 80 columns for each launcher.
std::string TableReport(const Status& status, bool coloured);

// A JSON document.
std::string JsonReport(const Status& status);
