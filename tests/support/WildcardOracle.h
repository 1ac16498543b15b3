// Computes the result of the wildcard matcher in another way: without a search,
// from the set of all positions in the name that each expression character can
// lead to.

#pragma once

#include <string>

// A character is one unit of either width.
bool OracleMatches(const std::u32string& expression, const std::u32string& name,
                   bool ignore_case);
