// Reading the items file as the launcher does, but without its endless loop.

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

ItemsText ReadItemsFile(const std::string& path);
