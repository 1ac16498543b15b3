#include "tests/support/Command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace {

using Environment = std::map<std::string, std::string>;

[[noreturn]] void Execute(const std::vector<std::string>& words,
                          const Environment& environment, int output,
                          int errors) {
  dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(errors, STDERR_FILENO);
  for (const auto& [name, value] : environment) {
    setenv(name.c_str(), value.c_str(), 1);
  }
  std::vector<char*> vector;
  for (const std::string& word : words) {
    vector.push_back(const_cast<char*>(word.c_str()));
  }
  vector.push_back(nullptr);
  execv(vector[0], vector.data());
  _exit(127);
}

// Appends the available output. Returns false at the end, which a terminal
// reports as an error.
bool ReadSome(int descriptor, std::string* text) {
  std::array<char, 4096> chunk{};
  const ssize_t count = read(descriptor, chunk.data(), chunk.size());
  if (count > 0) {
    text->append(chunk.data(), static_cast<std::size_t>(count));
  }
  return count > 0;
}

int Status(pid_t process) {
  constexpr int kSignalStatus = 128;
  int status = 0;
  waitpid(process, &status, 0);
  return WIFSIGNALED(status) ? kSignalStatus + WTERMSIG(status)
                             : WEXITSTATUS(status);
}

void ReadBoth(std::array<pollfd, 2> ends, CommandResult* result) {
  while (ends[0].fd >= 0 || ends[1].fd >= 0) {
    poll(ends.data(), ends.size(), -1);
    for (const std::size_t i : {0U, 1U}) {
      std::string& text = i == 0 ? result->output : result->errors;
      if (ends[i].revents != 0 && !ReadSome(ends[i].fd, &text)) {
        close(ends[i].fd);
        ends[i].fd = -1;
      }
    }
  }
}

}  // namespace

CommandResult RunCommand(const std::vector<std::string>& vector,
                         const Environment& environment) {
  int output[2];
  int errors[2];
  if (pipe(output) != 0 || pipe(errors) != 0) {
    throw std::runtime_error("no pipe");
  }
  const pid_t process = fork();
  if (process == 0) {
    Execute(vector, environment, output[1], errors[1]);
  }
  close(output[1]);
  close(errors[1]);
  CommandResult result;
  ReadBoth({pollfd{output[0], POLLIN, 0}, pollfd{errors[0], POLLIN, 0}},
           &result);
  result.status = Status(process);
  return result;
}

TerminalCommand::TerminalCommand(const std::vector<std::string>& vector,
                                 const Environment& environment, winsize size)
    : master_(posix_openpt(O_RDWR | O_NOCTTY)) {
  if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) {
    throw std::runtime_error("no terminal");
  }
  fcntl(master_, F_SETFD, FD_CLOEXEC);
  const int slave = open(ptsname(master_), O_RDWR | O_NOCTTY);
  Resize(size);
  process_ = fork();
  if (process_ == 0) {
    Execute(vector, environment, slave, slave);
  }
  close(slave);
}

TerminalCommand::~TerminalCommand() {
  if (process_ != 0) {
    Signal(SIGKILL);
    Status(process_);
  }
  close(master_);
}

void TerminalCommand::Resize(winsize size) const {
  ioctl(master_, TIOCSWINSZ, &size);
}

void TerminalCommand::Signal(int number) const { kill(process_, number); }

const std::string& TerminalCommand::Output() {
  pollfd end{master_, POLLIN, 0};
  while (poll(&end, 1, 0) > 0 && ReadSome(master_, &output_)) {
  }
  return output_;
}

int TerminalCommand::Wait() {
  while (ReadSome(master_, &output_)) {
  }
  return Status(std::exchange(process_, 0));
}

CommandResult RunOnTerminal(const std::vector<std::string>& vector,
                            const Environment& environment) {
  TerminalCommand command(vector, environment, {24, 80, 0, 0});
  CommandResult result;
  result.status = command.Wait();
  result.output = command.Output();
  std::erase(result.output, '\r');
  return result;
}
