// Running a command to its end, and what it wrote.

#pragma once

#include <map>
#include <string>
#include <vector>

struct CommandResult {
  int status = 0;  // the exit status, or 128 + the signal's number
  std::string output;
  std::string errors;
};

// Runs `vector`, whose first element is a path, with standard input empty and
// `environment` set besides this process's own.
CommandResult RunCommand(
    const std::vector<std::string>& vector,
    const std::map<std::string, std::string>& environment = {});

// The same with standard output and error on a terminal of 80 columns; what
// comes out there is in `output`, with the terminal's "\r\n" as "\n".
CommandResult RunOnTerminal(
    const std::vector<std::string>& vector,
    const std::map<std::string, std::string>& environment = {});
