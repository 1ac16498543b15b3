#include "tools/check/ProgramFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>

#include "tools/text/ShellQuote.h"

namespace {

// How much of a file's beginning the system looks at.
constexpr std::size_t kHeadBytes = 256;

// What an executable begins with: ELF, Mach-O of either width and byte order,
// and Mach-O for several processors.
constexpr std::array<std::string_view, 6> kMagics{
    "\x7F"
    "ELF",
    "\xCE\xFA\xED\xFE",
    "\xCF\xFA\xED\xFE",
    "\xFE\xED\xFA\xCE",
    "\xFE\xED\xFA\xCF",
    "\xCA\xFE\xBA\xBE"};

std::string Head(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string head(kHeadBytes, '\0');
  file.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<std::size_t>(file.gcount()));
  return head;
}

bool IsBinary(const std::string& head) {
  return std::ranges::any_of(
      kMagics, [&](std::string_view magic) { return head.starts_with(magic); });
}

// The word after "#!".
std::string Interpreter(const std::string& head) {
  const std::string line = head.substr(2, head.find('\n', 2) - 2);
  const std::size_t start = line.find_first_not_of(" \t");
  if (start == std::string::npos) {
    return "";
  }
  return line.substr(start, line.find_first_of(" \t", start) - start);
}

// The advice when there is no file at `path`.
std::string AdviceForMissing(const std::string& path) {
  if (path.find('/') == std::string::npos) {
    const std::string found = FindInPath(path);
    return (found.empty() ? "write the program's absolute path"
                          : "write \"" + found + "\"") +
           "; the launcher does not search PATH";
  }
  if (path[0] == '~' || path.find('$') != std::string::npos) {
    return "write the absolute path; no shell replaces ~ or variables";
  }
  if (path.find(' ') != std::string::npos) {
    return "write the program's path alone, and its arguments in \"args\"";
  }
  return "";
}

std::optional<ProgramProblem> FindAccessProblem(const std::string& path) {
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
    return ProgramProblem{"program-directory", "is a directory", ""};
  }
  if (faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) != 0 ||
      !S_ISREG(status.st_mode)) {
    return ProgramProblem{"program-not-executable",
                          "is not executable for this user", ""};
  }
  return std::nullopt;
}

std::optional<ProgramProblem> FindInterpreterProblem(const std::string& head) {
  const RuleName rule = "program-interpreter";
  const std::string interpreter = Interpreter(head);
  if (interpreter.empty()) {
    return ProgramProblem{rule, "has a \"#!\" line without an interpreter",
                          "name one, such as \"#!/bin/sh\""};
  }
  const auto problem = FindAccessProblem(interpreter);
  if (!problem) {
    return std::nullopt;
  }
  return ProgramProblem{rule,
                        "cannot be executed, since its interpreter " +
                            ShellQuoted(interpreter) + " " + problem->text,
                        interpreter.back() == '\r'
                            ? "end the script's lines with line feeds "
                              "alone, without carriage returns"
                            : ""};
}

}  // namespace

std::optional<ProgramProblem> FindProgramProblem(const std::string& path) {
  if (auto problem = FindAccessProblem(path)) {
    return problem;
  }
  if (access(path.c_str(), R_OK) != 0) {
    return std::nullopt;  // It may be executed and not be looked into.
  }
  const std::string head = Head(path);
  if (head.starts_with("#!")) {
    return FindInterpreterProblem(head);
  }
  if (IsBinary(head)) {
    return std::nullopt;
  }
  return ProgramProblem{"program-format",
                        "is neither a binary nor a script with a \"#!\" line",
                        ""};
}

std::string FindInPath(const std::string& name) {
  const char* const path = std::getenv("PATH");
  std::istringstream directories(path == nullptr ? "" : path);
  for (std::string directory; std::getline(directories, directory, ':');) {
    const std::string file = directory + "/" + name;
    if (!directory.empty() && !FindAccessProblem(file)) {
      return file;
    }
  }
  return "";
}
