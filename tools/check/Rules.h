// The rules of launcher-check, one row for each kind of finding.
//
// An id never changes its meaning: scripts read it, and docs/sharp-edges.md and
// the manual page explain each by its id.

#pragma once

#include <string_view>

#include "launcher/Messages.h"

enum class Severity { kWarning, kError };

struct Rule {
  const char* id;
  Severity severity;
  const char* effect;            // the consequence
  const char* advice;            // the remedy, as an order
  const char* logged = nullptr;  // the launcher's message then, if any
};

namespace rules {

using enum Severity;

inline constexpr const char* kEndsSilently =
    "the launcher ends at once with status 0 and logs nothing";
inline constexpr const char* kNeverStarts =
    "the launcher starts nothing and ends with status 0";
inline constexpr const char* kEndsStartup =
    "the launcher stops the items before this one and ends with status 0; it "
    "kills its process group if one of them has not been started yet";
inline constexpr const char* kNotStarted =
    "the launcher never looks at it, so the item is not started";
inline constexpr const char* kIgnored = "the launcher never looks at it";
inline constexpr const char* kKillsGroup =
    "the item's forked child kills the launcher's process group, the launcher "
    "and all other items included";
inline constexpr const char* kChain =
    "nothing runs and no error is logged; each attempt leaves one more process "
    "behind, in a chain that grows without end";
inline constexpr const char* kChildAborts =
    "the forked child ends by SIGABRT before it executes anything, at each "
    "start";
inline constexpr const char* kFaults =
    "the program ends by a memory fault (SIGSEGV or SIGBUS), at each start";
inline constexpr const char* kNumberItems =
    "number the items \"0\", \"1\", \"2\" and so on, without gaps, signs, "
    "blanks or leading zeros";

inline constexpr Rule kAll[] = {
    // The file.
    {"unreadable", kError, kEndsSilently,
     "give the path of a file that the launcher may read"},
    {"directory", kError,
     "the launcher reads it forever at full processor load and starts "
     "nothing",
     "give the path of the items file itself"},
    {"read-error", kError,
     "the launcher tries forever at full processor load and starts nothing",
     "give the path of a regular file"},
    {"empty", kError, kEndsSilently, "write {} for a list without any items"},
    {"nul", kError, "the launcher reads only what comes before it",
     "remove it"},
    {"not-regular", kError,
     "the launcher waits for a writer, or reads without end",
     "give a regular file, or - to check standard input"},
    {"utf-16", kError, kNeverStarts, "save the file as UTF-8",
     kParseFailedMessage},
    {"bom", kError, kNeverStarts,
     "save the file as UTF-8 without a byte order mark", kParseFailedMessage},
    {"quotes", kError, kNeverStarts,
     "put every key and text in plain double quotes: \"", kParseFailedMessage},
    {"trailing-comma", kError, kNeverStarts, "remove the comma",
     kParseFailedMessage},
    {"comment-misplaced", kError, kNeverStarts, "remove the comment",
     kParseFailedMessage},
    {"comment", kWarning,
     "the launcher skips this one, but a comment elsewhere can make the "
     "whole file unreadable",
     "remove all comments"},
    {"not-json", kError, kNeverStarts, "correct the text here or just before",
     kParseFailedMessage},
    {"top-level-type", kError, kNeverStarts,
     R"(write the items as { "0": { ... }, "1": { ... } })",
     kParseFailedMessage},
    {"trailing-text", kWarning, "the launcher never looks at the rest",
     "remove the rest, or the surplus bracket before it"},
    {"closed-early", kError,
     "the launcher never looks at the rest, so the items in it are not "
     "started",
     "remove the surplus bracket before it"},
    {"raw-control", kWarning,
     "this version of the JSON library keeps it; newer ones refuse the "
     "whole file",
     "write \\t, \\n or \\u00.. instead"},
    {"duplicate-key", kWarning, "only the last one counts",
     "remove the others"},

    // The list of items.
    {"no-items", kWarning, "the launcher starts nothing and waits for SIGTERM",
     R"(begin with { "0": { "name": ..., "program": ... } })"},
    {"gap", kError, kNotStarted, kNumberItems},
    {"stray-item", kError, kNotStarted, kNumberItems},
    {"item-replaced", kError,
     "the last one counts; the others with this number are not started",
     "give each item its own number"},
    {"unknown-key", kWarning, kIgnored, "remove it"},
    {"item-type", kError, kEndsStartup,
     R"(write { "name": ..., "program": ... })", kParseFailedMessage},

    // An item's name.
    {"name-missing", kError, "the launcher skips the item",
     "give the item a name", kNamelessMessage},
    {"name-type", kError, kEndsStartup, "write a string", kParseFailedMessage},
    {"name-empty", kWarning, "the log does not show whose lines are whose",
     "write a name"},
    {"name-duplicate", kError,
     "the launcher kills the earlier item, or its own process group and itself "
     "if the earlier item has not been started yet",
     "give each item its own name"},

    // An item's program.
    {"program-missing", kError, kKillsGroup,
     "write the program's absolute path"},
    {"program-empty", kError, kKillsGroup, "write the program's absolute path"},
    {"program-type", kError,
     "the whole launcher ends by SIGABRT; the programs that are already "
     "running go on without it",
     "write the program's path as a string"},
    {"program-relative", kWarning,
     "the launcher looks for it below the directory that it is started in",
     "write the absolute path"},
    {"program-not-found", kError, kChain,
     "write the absolute path of an executable that exists"},
    {"program-directory", kError, kChain,
     "write the path of the executable inside it"},
    {"program-not-executable", kError, kChain,
     "make it executable with chmod +x, or name another file"},
    {"program-format", kError, kChain,
     "begin a script with its interpreter, such as \"#!/bin/sh\""},
    {"program-interpreter", kError, kChain,
     "after \"#!\", name an interpreter that exists"},
    {"program-machine", kError, kChain,
     "install the program that was built for this system and processor"},
    {"program-loader", kError, kChain,
     "install the loader's package, or a program built for this system"},
    {"program-truncated", kError, kFaults, "install the program again"},
    {"program-library", kError, kFaults,
     "name the program that uses the library"},
    {"program-env", kWarning,
     "\"env\" ends with exit status 127, at each start",
     "write the interpreter's absolute path after \"#!\", or add its directory "
     "to the launcher's own PATH"},
    {"program-env-loop", kError,
     "\"env\" executes the script itself again and again at full processor "
     "load",
     "write the program's name after \"env\""},
    {"program-unreadable", kWarning,
     "a binary runs, but the interpreter of a script cannot open it and "
     "ends, at each start",
     "make a script readable with chmod +r"},

    // An item's arguments.
    {"argc-type", kError, kChildAborts,
     "write the number of arguments, without quotes"},
    {"argc-negative", kError,
     "the program starts without any arguments, even without its own path, "
     "and many programs do not survive that",
     "write the number of arguments, 0 for none"},
    {"argc-cut", kError, "the program gets that many arguments",
     "write the number of arguments"},
    {"argc-converted", kWarning, "the program gets that many arguments",
     "write an integer"},
    {"argc-too-large", kError,
     "the forked child ends by a memory fault before it executes anything, "
     "at each start",
     "write the number of arguments"},
    {"args-type", kError, kChildAborts,
     R"(write an object: { "0": "first", "1": "second" })"},
    {"args-without-argc", kWarning, "the program gets none of these arguments",
     "write \"argc\", and the arguments as an object"},
    {"arg-type", kError, kChildAborts, "write a string"},
    {"arg-missing", kWarning, "the program gets an empty argument in its place",
     "add it, or write a smaller \"argc\""},
    {"arg-unread", kWarning, "the program does not get it",
     "number the arguments from \"0\" without gaps and write how many "
     "there are as \"argc\""},
    {"arg-too-long", kError, kChain,
     "write a shorter argument, such as the path of a file with the text"},
    {"args-too-large", kError, kChain,
     "write shorter or fewer arguments, such as the path of a file with the "
     "texts"},

    // Any text.
    {"converted", kWarning, "the launcher reads it as this text",
     "write the text that you mean, in quotes"},
    {"null", kWarning, "the launcher reads it as an empty text",
     "write a string"},
    {"cut-at-nul", kWarning, "the launcher reads only what comes before it",
     "remove everything from \\u0000 on"},
};

}  // namespace rules

// A row by its id. An unknown id does not compile.
class RuleName {
 public:
  // NOLINTNEXTLINE(google-explicit-constructor)
  consteval RuleName(const char* id) {
    while (std::string_view(id) != rule_->id) {
      ++rule_;
    }
  }

  constexpr const Rule* operator->() const { return rule_; }

 private:
  const Rule* rule_ = rules::kAll;
};
