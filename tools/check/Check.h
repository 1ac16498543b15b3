// What the launcher would do with an items file, found out by reading the file
// through the launcher's own walk (launcher/Items.h), without starting
// anything.

#pragma once

#include "tools/check/Findings.h"
#include "tools/check/ItemsFile.h"

// Never throws for anything in the file. Programs are judged as this process's
// user sees them, relative paths from its working directory.
CheckResult CheckItems(const ItemsText& file);
