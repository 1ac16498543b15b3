// Which of a launcher's children belongs to which of its items.

#pragma once

#include <vector>

#include "tools/status/Status.h"

// `command_line` without its first `words` words; empty when it has no more.
std::string_view WithoutWords(std::string_view command_line, int words);

// How many words at most the system puts in front of a script's own: five
// interpreters in turn, each with an argument.
inline constexpr int kInterpreterWords = 10;

// Gives `workers` to the items and stores those that may be several items' as
// unassigned. In this order: the same arguments; the same after an
// interpreter's; arguments that an item's end with, since `env`, `nice` or
// "sh -c 'exec ...'" have executed them; the one chain for the one item whose
// program cannot be executed; the one that is left for the one that is left.
void Match(std::vector<Worker> workers, LauncherStatus* launcher);
