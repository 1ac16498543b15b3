// Predicts how the launcher would act on an items file. Uses the launcher's own
// walk (launcher/Items.h) and starts nothing.

#pragma once

#include <string>

#include "tools/check/Findings.h"

// The path that means standard input.
inline constexpr char kStandardInput[] = "-";

// Reads the file as the launcher does, but without its endless loop. The result
// has no items yet.
CheckResult ReadItemsFile(const std::string& path);

// Checks the text of `file`, which `ReadItemsFile` has returned. Never throws
// for anything in it. Programs are judged as this process's user sees them,
// relative paths from its working directory.
CheckResult CheckItems(CheckResult file);
