// Reading the items file as the launcher does, but without its endless loop.

#pragma once

#include <optional>
#include <string>

#include "tools/check/Findings.h"

// The text that the launcher gets from the file at `path`: all of it up to the
// first NUL. Nothing, with the reason among `findings`, when it gets none.
// `readable` tells whether the file could be read to its end.
std::optional<std::string> ReadItemsFile(const std::string& path,
                                         Findings* findings, bool* readable);
