// What the system executes, as far as systems differ.

#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "tools/check/ProgramFile.h"

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

// Why the system would not execute the regular file at `path`, which is no
// script; nothing when it would, or when that does not show. The file must be
// readable.
std::optional<ProgramProblem> FindBinaryProblem(const std::string& path);
