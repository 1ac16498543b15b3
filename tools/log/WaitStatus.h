// Wait statuses, as the launcher logs them, decoded.

#pragma once

#include <string>

// What ended a program, from the harmless to the grave.
enum class EndCause { kSuccess, kFailure, kKilled, kSignal, kCore };
constexpr int kEndCauses = 5;

struct WaitStatus {
  explicit WaitStatus(int word);

  EndCause Cause() const;

  // "exit 3", "SIGKILL", "SIGSEGV core"
  std::string Text() const;

  int code;    // of an exit
  int signal;  // 0 after an exit
  bool core;   // whether the system wrote a core file
};

// "SIGKILL"; "signal 99" for a number without a name here.
std::string SignalName(int signal);
