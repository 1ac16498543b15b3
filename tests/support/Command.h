// Running a command to its end, and what it wrote.

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

// Runs `vector`, whose first element is a path, with standard input empty and
// `environment` set besides this process's own.
CommandResult RunCommand(
    const std::vector<std::string>& vector,
    const std::map<std::string, std::string>& environment = {});

// A command with standard output and error on a terminal of its own.
class TerminalCommand {
 public:
  TerminalCommand(const std::vector<std::string>& vector,
                  const std::map<std::string, std::string>& environment,
                  winsize size);
  // Kills it, if it still runs.
  ~TerminalCommand();
  TerminalCommand(const TerminalCommand&) = delete;
  TerminalCommand& operator=(const TerminalCommand&) = delete;

  void Resize(winsize size) const;
  void Signal(int number) const;
  // What has come out so far, with the terminal's "\r\n" as it stands.
  const std::string& Output();
  // Waits for its end; the exit status, or 128 + the signal's number.
  int Wait();

 private:
  int master_ = -1;
  pid_t process_ = 0;
  std::string output_;
};

// The same as `RunCommand` on such a terminal, of 80 columns; what comes out
// there is in `output`, with the terminal's "\r\n" as "\n".
CommandResult RunOnTerminal(
    const std::vector<std::string>& vector,
    const std::map<std::string, std::string>& environment = {});
