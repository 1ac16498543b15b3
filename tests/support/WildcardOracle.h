// What the wildcard matcher has to answer, worked out in another way than the
// matcher's: no search, but the set of all places that each expression
// character can lead to.

#pragma once

#include <string>

// One unit of either width is one character here.
bool OracleMatches(const std::u32string& expression, const std::u32string& name,
                   bool ignore_case);
