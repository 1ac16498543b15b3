#include "tools/log/WaitStatus.h"

#include <csignal>
#include <map>

// The system's own macros would do, but for their words on stopped children.
WaitStatus::WaitStatus(int word)
    : code((word >> 8) & 0xFF), signal(word & 0x7F), core((word & 0x80) != 0) {}

EndCause WaitStatus::Cause() const {
  if (signal == 0) {
    return code == 0 ? EndCause::kSuccess : EndCause::kFailure;
  }
  if (core) {
    return EndCause::kCore;
  }
  return signal == SIGKILL ? EndCause::kKilled : EndCause::kSignal;
}

std::string WaitStatus::Text() const {
  if (signal == 0) {
    return "exit " + std::to_string(code);
  }
  return SignalName(signal) + (core ? " core" : "");
}

std::string SignalName(int signal) {
  static const std::map<int, std::string> kNames{
      {SIGHUP, "SIGHUP"},       {SIGINT, "SIGINT"},   {SIGQUIT, "SIGQUIT"},
      {SIGILL, "SIGILL"},       {SIGTRAP, "SIGTRAP"}, {SIGABRT, "SIGABRT"},
      {SIGBUS, "SIGBUS"},       {SIGFPE, "SIGFPE"},   {SIGKILL, "SIGKILL"},
      {SIGUSR1, "SIGUSR1"},     {SIGSEGV, "SIGSEGV"}, {SIGUSR2, "SIGUSR2"},
      {SIGPIPE, "SIGPIPE"},     {SIGALRM, "SIGALRM"}, {SIGTERM, "SIGTERM"},
      {SIGXCPU, "SIGXCPU"},     {SIGXFSZ, "SIGXFSZ"}, {SIGPROF, "SIGPROF"},
      {SIGVTALRM, "SIGVTALRM"}, {SIGSYS, "SIGSYS"},   {SIGIO, "SIGIO"}};
  const auto name = kNames.find(signal);
  return name == kNames.end() ? "signal " + std::to_string(signal)
                              : name->second;
}
