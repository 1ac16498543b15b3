// What the launcher would do with an items file, found out by reading the file
// through the launcher's own walk (launcher/Items.h), without starting
// anything.

#pragma once

#include <optional>
#include <string>

#include "tools/check/Findings.h"

struct ItemsText {
  // What the launcher gets: all of the file up to the first NUL. Nothing when
  // it gets none.
  std::optional<std::string> text;
  bool readable = false;  // whether the file could be read to its end
  Findings findings;
};

// The path that means standard input.
inline constexpr char kStandardInput[] = "-";

// Reads the file as the launcher does, but without its endless loop.
ItemsText ReadItemsFile(const std::string& path);

// Never throws for anything in the file. Programs are judged as this process's
// user sees them, relative paths from its working directory.
CheckResult CheckItems(const ItemsText& file);
