// A picture of a log: one lane per item over time, with bars while its program
// ran and marks where it ended.

#pragma once

#include <string>

#include "tools/log/History.h"
#include "tools/log/Timeline.h"

// The picture as SVG, with a lane for each of the history's items.
std::string PlotSvg(const History& history, const Timeline& timeline,
                    const Present& present);
