// Corrects an items file where only one correction is possible.

#pragma once

#include <optional>
#include <string>
#include <vector>

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
