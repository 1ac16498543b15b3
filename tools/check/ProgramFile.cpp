#include "tools/check/ProgramFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>

#include "tools/text/Characters.h"

namespace {

constexpr const char* kAdviceForCarriageReturn =
    "end the script's lines with line feeds alone, without carriage returns";

// The first line of a script.
struct ScriptLine {
  std::string interpreter;
  std::string rest;  // without the blanks around it
  bool is_cut;       // the interpreter's name does not end within the line
};

ScriptLine ParseScriptLine(const std::string& head) {
  constexpr std::string_view kBlanks = " \t";
  constexpr std::string_view kEnds(" \t\0", 3);
  std::string line = head.substr(2, head.find('\n') - 2);
  line.erase(0, line.find_first_not_of(kBlanks));
  const std::size_t end = std::min(line.find_first_of(kEnds), line.size());
  const bool is_cut = end == line.size() && head.size() == kScriptLineBytes &&
                      head.find('\n') == std::string::npos;
  std::string rest = line.substr(end);
  rest.erase(rest.find_last_not_of(kBlanks) + 1);
  rest.erase(0, rest.find_first_not_of(kBlanks));
  return {line.substr(0, end), rest, is_cut};
}

// The path of the executable `name` in PATH; empty if there is none.
std::string FindInPath(const std::string& name) {
  const char* const path = std::getenv("PATH");
  std::istringstream directories(path == nullptr ? "" : path);
  for (std::string file; std::getline(directories, file, ':');) {
    if (!file.empty() && !FindAccessProblem(file.append("/").append(name))) {
      return file;
    }
  }
  return "";
}

// The advice if there is no file at `path`.
std::string AdviceForMissing(const std::string& path) {
  const std::string first = path.substr(0, path.find(' '));
  const std::string rest =
      first == path ? "" : ", and the rest as arguments in \"args\"";
  if (first.find('/') == std::string::npos) {
    const std::string found = FindInPath(first);
    return (found.empty() ? "write the program's absolute path"
                          : "write " + Quoted(found) + rest) +
           "; the launcher does not search PATH";
  }
  if (path[0] == '~' || path.find('$') != std::string::npos) {
    const char* const home = std::getenv("HOME");
    std::string expanded = "the absolute path";
    for (const std::string_view prefix : {"~/", "$HOME/", "${HOME}/"}) {
      if (home != nullptr && path.starts_with(prefix)) {
        expanded = Quoted(home + path.substr(prefix.size() - 1));
      }
    }
    return "write " + expanded + "; no shell replaces ~ or variables";
  }
  return !rest.empty() && !FindAccessProblem(first)
             ? "write " + Quoted(first) + rest
             : "";
}

// The program that "env" executes with the arguments `rest`; empty if there is
// none, or if an option makes that hard to determine.
std::string ProgramOfEnv(std::string rest) {
  constexpr std::string_view kSplit = "-S";
  const bool has_option = rest.starts_with(kSplit);
  if (has_option || kSplitsScriptArguments) {
    std::istringstream words(rest.substr(has_option ? kSplit.size() : 0));
    do {
      rest.clear();
      words >> rest;
    } while (rest.find('=') != std::string::npos);
  }
  return rest.starts_with('-') ? "" : rest;
}

MaybeProblem FindEnvProblem(const std::string& rest) {
  if (rest.empty()) {
    return ProgramProblem{"program-env-loop",
                          "is a script for \"env\" without a program"};
  }
  const std::string name = ProgramOfEnv(rest);
  const bool is_path = name.find('/') != std::string::npos;
  if (name.empty() ||
      (is_path ? !FindAccessProblem(name) : !FindInPath(name).empty())) {
    return std::nullopt;
  }
  std::string advice;
  if (name.back() == '\r') {
    advice = kAdviceForCarriageReturn;
  } else if (name.find(' ') != std::string::npos) {
    advice =
        "write \"-S\" after \"env\", since it gets the rest of the line as "
        "one name";
  }
  return ProgramProblem{
      "program-env",
      "is a script for \"env\", which does not find " + ShellQuoted(name),
      advice};
}

MaybeProblem FindProblem(const std::string& path, int scripts);

// `scripts` have led to this one.
MaybeProblem FindScriptProblem(const ScriptLine& line, int scripts) {
  const RuleName rule = "program-interpreter";
  const std::string& interpreter = line.interpreter;
  if (interpreter.empty()) {
    return ProgramProblem{rule, "has a \"#!\" line without an interpreter",
                          "name one, such as \"#!/bin/sh\""};
  }
  if (line.is_cut) {
    return ProgramProblem{rule, "has a \"#!\" line that is too long"};
  }
  if (scripts >= kMostScripts) {
    return ProgramProblem{
        rule, "has too long a chain of interpreters that are scripts",
        "name a binary as the interpreter"};
  }
  if (auto problem = FindProblem(interpreter, scripts + 1)) {
    const bool is_chain =
        problem->rule->effect == std::string_view(rules::kChain);
    return ProgramProblem{
        is_chain ? rule : problem->rule,
        "has the interpreter " + ShellQuoted(interpreter) + ", which " +
            problem->text,
        interpreter.back() == '\r' ? kAdviceForCarriageReturn : ""};
  }
  return interpreter.ends_with("/env") ? FindEnvProblem(line.rest)
                                       : std::nullopt;
}

// `scripts` have led to the file at `path`.
MaybeProblem FindProblem(const std::string& path, int scripts) {
  if (auto problem = FindAccessProblem(path)) {
    return problem;
  }
  if (faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0) {
    return ProgramProblem{"program-unreadable",
                          "may be executed but not read by this user"};
  }
  const std::string head = BytesAt(path, 0, kScriptLineBytes);
  return head.starts_with("#!")
             ? FindScriptProblem(ParseScriptLine(head), scripts)
             : FindBinaryProblem(path);
}

}  // namespace

MaybeProblem FindProgramProblem(const std::string& path) {
  return FindProblem(path, 0);
}

std::string BytesAt(const std::string& path, std::uint64_t offset,
                    std::size_t count) {
  std::string bytes(count, '\0');
  std::ifstream file(path, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(offset));
  file.read(bytes.data(), static_cast<std::streamsize>(count));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

MaybeProblem FindAccessProblem(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) {
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR) {
      return ProgramProblem{"program-not-found", "does not exist",
                            AdviceForMissing(path)};
    }
    return ProgramProblem{
        "program-not-found",
        std::string("cannot be reached: ") + std::strerror(error),
        "write a path that the launcher's user may reach"};
  }
  if (S_ISDIR(status.st_mode)) {
    return ProgramProblem{"program-directory", "is a directory"};
  }
  if (faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) != 0 ||
      !S_ISREG(status.st_mode)) {
    return ProgramProblem{"program-not-executable",
                          "is not executable for this user"};
  }
  return std::nullopt;
}
