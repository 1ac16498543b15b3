// What is found in an items file.

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

enum class Severity { kWarning, kError };

struct Finding {
  Severity severity = Severity::kError;
  std::string id;                     // a name for machines: "program-missing"
  std::optional<std::size_t> offset;  // in the file, where it can be had
  std::optional<int> item;            // the item's index
  std::string key;                    // "program"; empty when about the whole
  std::string problem;
  std::string effect;  // what the launcher does about it
  std::string advice;  // what to write instead
};

using Findings = std::vector<Finding>;

// An item that the launcher comes to.
struct CheckedItem {
  int index = 0;
  std::optional<std::string> name;
  bool runs =
      false;  // until the file's end; not when it is skipped or replaced
  // What the program is given, its path first; nothing where the launcher does
  // not get that far.
  std::optional<std::vector<std::string>> vector;
};

struct CheckResult {
  bool readable = false;
  std::string text;  // as the launcher reads it
  std::vector<CheckedItem> items;
  Findings findings;
};
