// Predicts how the launcher would act on an items file, and corrects the file.
// Uses the launcher's own walk (launcher/Items.h) and starts nothing.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/json/JsonObject.h"
#include "tools/check/Findings.h"
#include "tools/check/JsonText.h"

// The path that means standard input.
inline constexpr char kStandardInput[] = "-";

// Reads the file as the launcher does, but without its endless loop. The result
// has no items yet.
CheckResult ReadItemsFile(const std::string& path);

// Checks the text of `file`, which `ReadItemsFile` has returned. Never throws
// for anything in it. Programs are judged as this process's user sees them,
// relative paths from its working directory.
CheckResult CheckItems(CheckResult file);

// The same for one item of the text: reads it as its supervision thread does,
// or only its keys if it has no name, since the launcher then skips it. Adds to
// `item` what the launcher adds.
void CheckItem(int index, JsonObject item, const JsonText& json,
               CheckResult& result);

struct FixedItems {
  std::string text;
  // Each says what was done: "removed the comments". Empty for a good file.
  std::vector<std::string> changes;
};

// The items file `text` without the faults that can be corrected for certain:
// lists written as arrays, gaps in the numbering, a missing "argc", misspelt
// keys, numbers in place of texts, and small slips of syntax. nullopt if `text`
// cannot be read as a list of items.
std::optional<FixedItems> FixItems(const std::string& text);
