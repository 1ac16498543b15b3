// Whether the system would execute a file.

#pragma once

#include <optional>
#include <string>

struct ProgramProblem {
  std::string id;      // "program-not-found", "program-interpreter", ...
  std::string text;    // "there is no such file"
  std::string advice;  // what to write instead
};

// Why `execv` would fail on `path`, which is not empty, for this process's user
// and from its working directory, as far as that can be told without trying;
// nothing when it would not.
std::optional<ProgramProblem> FindProgramProblem(const std::string& path);

// The path of the executable `name` in PATH; empty when there is none.
std::string FindInPath(const std::string& name);
