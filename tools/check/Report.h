// A check's result, for people and for machines.

#pragma once

#include <string>

#include "tools/check/Findings.h"

// Lines of text. Each finding begins as compilers' do, with
// "<path>:<line>:<column>: error: ".
std::string TextReport(const std::string& path, const CheckResult& result,
                       bool coloured);

// A JSON document.
std::string JsonReport(const std::string& path, const CheckResult& result);

std::size_t CountFindings(const CheckResult& result, Severity severity);
