// Runs commands and reads their output.

#pragma once

#include <sys/ioctl.h>
#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

struct CommandResult {
  int status = 0;  // the exit status, or 128 + the signal's number
  std::string output;
  std::string errors;
};

// Runs the argument vector `vector`, whose first element is a path, with an
// empty standard input and `environment` added to this process's own.
CommandResult RunCommand(
    const std::vector<std::string>& vector,
    const std::map<std::string, std::string>& environment = {});

// A command whose standard output and error are a terminal of its own.
class TerminalCommand {
 public:
  TerminalCommand(const std::vector<std::string>& vector,
                  const std::map<std::string, std::string>& environment,
                  winsize size);
  // Kills the command if it still runs.
  ~TerminalCommand();
  TerminalCommand(const TerminalCommand&) = delete;
  TerminalCommand& operator=(const TerminalCommand&) = delete;

  void Resize(winsize size) const;
  void Signal(int number) const;
  // The output so far, with "\r\n" at the end of lines.
  const std::string& Output();
  // Waits for the command to end. Returns its status, as `CommandResult` has
  // it.
  int Wait();

 private:
  int master_ = -1;
  pid_t process_ = 0;
  std::string output_;
};

// Like `RunCommand`, but on a terminal of 80 columns: all of its output is in
// `output`, with "\n" at the end of lines.
CommandResult RunOnTerminal(
    const std::vector<std::string>& vector,
    const std::map<std::string, std::string>& environment = {});
