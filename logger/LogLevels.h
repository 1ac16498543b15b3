// The order and the texts of the levels.
//
// By severity: VERBOSE < DEBUG < MESSAGE < WARNING < ERROR < CRITICAL. The
// values do not say so, LOGLEVEL_VERBOSE being the greatest. A value that is
// none of the six counts as LOGLEVEL_ERROR, as an unknown text does in the
// level's configuration.

#pragma once

#include <string_view>

#include "environment/LoggerLibrary.h"

// How severe `level` is: greater is more severe. Nothing else is promised of
// the numbers.
int Severity(LOGLEVEL level);

// "VERBOSE", "DEBUG", "MESSAGE", "WARNING", "ERROR" or "CRITICAL".
std::string_view LevelText(LOGLEVEL level);
