// The stack of the calling thread.

#pragma once

#include <sys/types.h>

#include <cstddef>

#ifdef __linux__

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

struct Stack {
  char* lowest = nullptr;
  std::size_t bytes = 0;
  std::size_t guard_bytes = 0;  // made by the C library
};

inline Stack OwnStack() {
  pthread_attr_t attributes;
  pthread_getattr_np(pthread_self(), &attributes);
  void* lowest = nullptr;
  Stack stack;
  pthread_attr_getstack(&attributes, &lowest, &stack.bytes);
  pthread_attr_getguardsize(&attributes, &stack.guard_bytes);
  pthread_attr_destroy(&attributes);
  stack.lowest = static_cast<char*>(lowest);
  return stack;
}

// Whether a write to the lowest byte of the stack faults, tried in a forked
// child of `fork_call`.
inline bool StackIsGuarded(pid_t (*fork_call)()) {
  const pid_t child = fork_call();
  if (child == 0) {
    std::signal(SIGSEGV, SIG_DFL);
    *static_cast<volatile char*>(OwnStack().lowest) = 1;
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV;
}

#endif
