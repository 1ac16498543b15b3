// A picture of a log: one lane per item over time, with bars for the runs of
// its program and marks for their ends.

#pragma once

#include <string>

#include "tools/log/History.h"

// The picture as SVG, with a lane for each of the history's items.
std::string PlotSvg(const History& history, const Present& present);
