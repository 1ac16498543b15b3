// Whether the system would execute a file, and the limits on its arguments.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/check/Rules.h"

struct ProgramProblem {
  RuleName rule;
  std::string text;      // a predicate: "does not exist"
  std::string advice{};  // empty if the rule's own is enough
};
using MaybeProblem = std::optional<ProgramProblem>;

// The reason that `execv` would fail on `path`, or that the program would end
// at once, as far as the files show without a trial. Assumes this process's
// user and working directory, and follows interpreters of scripts. `path` must
// not be empty.
MaybeProblem FindProgramProblem(const std::string& path);

// The same, but only for the path and its permissions.
MaybeProblem FindAccessProblem(const std::string& path);

// Up to `count` bytes of the file at `path` from `offset` on.
std::string BytesAt(const std::string& path, std::uint64_t offset,
                    std::size_t count);

// These functions depend on the system.

// The same for the contents of the file at `path`, which is readable and not a
// script.
MaybeProblem FindBinaryProblem(const std::string& path);

// The most bytes that one argument may have, its terminating zero included.
extern const std::size_t kLongestArgumentBytes;

// The most bytes that all arguments and the environment may have together, with
// their terminating zeros and the pointers to them.
std::size_t LargestArgumentsBytes();

// How many scripts in a row may each be the interpreter of the one before.
extern const int kMostScripts;

// The most bytes of a script's first line, "#!" included, that the system reads
// to find the interpreter.
extern const std::size_t kScriptLineBytes;

// Whether the rest of a "#!" line, after the interpreter, is split at blanks.
extern const bool kSplitsScriptArguments;
