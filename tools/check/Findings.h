// The findings about an items file, and the reports of them.

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/check/Rules.h"

struct Place {
  std::optional<int> item;  // the item's index
  std::string key;          // "args/0"; empty for a whole item or file
  std::optional<std::size_t> offset;  // in the file, in bytes
  // As editors count: from 1, columns in characters. 0 without an offset.
  std::size_t line = 0;
  std::size_t column = 0;
};

struct Finding {
  RuleName rule;
  Place place;
  std::string problem;  // a predicate: "is empty"
  std::string effect;
  std::string advice;
};

using Findings = std::vector<Finding>;

// A finding with the rule's effect, and its advice if `advice` is empty.
Finding Found(RuleName rule, Place place, std::string problem,
              std::string advice = "");

// An item that the launcher reaches.
struct CheckedItem {
  int index = 0;
  std::optional<std::string> name;
  bool runs = false;  // false when it is skipped, or replaced by a later one
  // The program's argument vector, its path first; nullopt if the launcher does
  // not get that far.
  std::optional<std::vector<std::string>> vector;
};

struct CheckResult {
  bool readable = false;  // whether the file could be read to its end
  // The text that the launcher reads: the file up to its first NUL. nullopt if
  // it reads none.
  std::optional<std::string> text;
  std::vector<CheckedItem> items;
  // First those about the reading, then those of each item, then those about
  // the whole text.
  Findings findings;
};

std::size_t CountFindings(const Findings& findings, Severity severity);

// Fills in the lines and columns of all places in `text`.
void CountLines(const std::string& text, Findings& findings);

// The report for people. A finding begins like a compiler's message, with
// "<path>:<line>:<column>: error: ", and names its rule in brackets.
std::string TextReport(const std::string& path, const CheckResult& result,
                       bool coloured);

// A JSON document with a line for each item and finding.
std::string JsonReport(const std::string& path, const CheckResult& result);
