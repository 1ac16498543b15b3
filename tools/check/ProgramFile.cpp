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

// What stands between "#!" and the interpreter's argument.
std::string Interpreter(const std::string& head) {
  const std::string line = head.substr(2, head.find('\n', 2) - 2);
  const std::size_t start = line.find_first_not_of(" \t");
  if (start == std::string::npos) {
    return "";
  }
  return line.substr(start, line.find_first_of(" \t", start) - start);
}

// The advice when nothing stands at `path`.
std::string AdviceForMissing(const std::string& path) {
  if (path.find('/') == std::string::npos) {
    const std::string found = FindInPath(path);
    return found.empty() ? "write the program's absolute path; PATH is not "
                           "searched"
                         : "write \"" + found + "\"; PATH is not searched";
  }
  if (path[0] == '~' || path.find('$') != std::string::npos) {
    return "write the absolute path; no shell replaces ~ or variables";
  }
  if (path.find(' ') != std::string::npos) {
    return "write the program's path alone, its arguments under \"args\"";
  }
  return "write the absolute path of an executable that exists";
}

std::optional<ProgramProblem> FindAccessProblem(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) {
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR) {
      return ProgramProblem{"program-not-found", "there is no such file",
                            AdviceForMissing(path)};
    }
    return ProgramProblem{"program-not-found", std::strerror(error),
                          "write a path that the launcher's user may reach"};
  }
  if (S_ISDIR(status.st_mode)) {
    return ProgramProblem{"program-directory", "it is a directory",
                          "write the path of the executable inside it"};
  }
  if (faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) != 0 ||
      !S_ISREG(status.st_mode)) {
    return ProgramProblem{"program-not-executable",
                          "it is not executable for the present user",
                          "make it so with chmod +x, or name another file"};
  }
  return std::nullopt;
}

std::optional<ProgramProblem> FindInterpreterProblem(const std::string& head) {
  const std::string interpreter = Interpreter(head);
  const char* const id = "program-interpreter";
  if (interpreter.empty()) {
    return ProgramProblem{id, "its \"#!\" line names no interpreter",
                          "name one, such as \"#!/bin/sh\""};
  }
  const auto problem = FindAccessProblem(interpreter);
  if (!problem) {
    return std::nullopt;
  }
  const bool carriage_return = interpreter.back() == '\r';
  return ProgramProblem{
      id,
      "its interpreter " + ShellQuoted(interpreter) +
          " cannot be executed: " + problem->text,
      carriage_return ? "save the script with line feeds alone at its ends of "
                        "line"
                      : "name an interpreter that exists behind \"#!\""};
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
  return ProgramProblem{
      "program-format",
      "it is neither a binary nor a script with a \"#!\" line",
      "begin a script with its interpreter, such as "
      "\"#!/bin/sh\""};
}

std::string FindInPath(const std::string& name) {
  const char* const path = std::getenv("PATH");
  std::istringstream directories(path == nullptr ? "" : path);
  for (std::string directory; std::getline(directories, directory, ':');) {
    std::string file = directory;
    file.append("/").append(name);
    if (!directory.empty() && !FindAccessProblem(file)) {
      return file;
    }
  }
  return "";
}
