// A check's result, for people and for machines.

#pragma once

#include <string>

#include "tools/check/Findings.h"

// Lines of text. A finding begins like a compiler's message, with
// "<path>:<line>:<column>: error: ", and names its rule in brackets.
std::string TextReport(const std::string& path, const CheckResult& result,
                       bool coloured);

// A JSON document.
std::string JsonReport(const std::string& path, const CheckResult& result);
