// Whether the system would execute a file.

#pragma once

#include <optional>
#include <string>

#include "tools/check/Rules.h"

struct ProgramProblem {
  RuleName rule;
  std::string text;    // a predicate: "does not exist"
  std::string advice;  // empty where the rule's own will do
};

// Why `execv` would fail on `path`, which must not be empty, or the program end
// at once, for this process's user and from its working directory, as far as
// that shows without trying. Interpreters of scripts are followed.
std::optional<ProgramProblem> FindProgramProblem(const std::string& path);

// The part of that which is about the path and its permissions alone.
std::optional<ProgramProblem> FindAccessProblem(const std::string& path);

// The path of the executable `name` in PATH; empty when there is none.
std::string FindInPath(const std::string& name);
