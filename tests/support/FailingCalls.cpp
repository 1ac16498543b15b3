// A library to preload: makes calls of the launcher fail as FAILING says, and
// keeps SIGKILL away from processes outside the launcher's group.
//
//   FAILING=fork:3     the third fork of the process fails
//   FAILING=fork:3+    so do all that follow
//   FAILING=fork:hold  every fork waits forever
//   FAILING=fork:late  the first fork waits until another thread waits for a
//                      child or kills one; no kill reaches a process group
//   FAILING=execv:hold every execv waits forever
//   FAILING=kill:1+    no kill reaches a process group
//   FAILING=execv:term the first execv is preceded by a SIGTERM to its process
//   CLOCK=4102444800   the time of day is this
//
// A call that fails writes to the file that FAILED names. A kill whose target
// is not a process writes the target to the file that KILLS names: 0 goes
// through, -1 does not. The variables are taken out of the environment, so that
// the items do not see them.

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>

// The C library's own, which needs no other call.
extern "C" void* __libc_malloc(size_t size);

namespace {

using Text = std::array<char, 4096>;

Text g_call;  // empty: none fails
Text g_failed;
Text g_kills;
int g_nth = 0;
bool g_onwards = false;
bool g_hold = false;
bool g_late = false;
std::atomic<bool> g_first_fork_may_go_on = false;
bool g_term = false;
time_t g_clock = 0;
std::atomic<int> g_count = 0;

void Take(const char* name, Text& text) {
  if (const char* const value = getenv(name); value != nullptr) {
    strncpy(text.data(), value, text.size() - 1);
    unsetenv(name);
  }
}

__attribute__((constructor)) void Initialize() {
  Text failing{};
  Text clock{};
  Take("FAILED", g_failed);
  Take("KILLS", g_kills);
  Take("CLOCK", clock);
  Take("FAILING", failing);
  unsetenv("LD_PRELOAD");
  g_clock = atoll(clock.data());
  if (char* const number = strchr(failing.data(), ':'); number != nullptr) {
    *number = '\0';
    g_hold = strcmp(number + 1, "hold") == 0;
    g_late = strcmp(number + 1, "late") == 0;
    g_term = strcmp(number + 1, "term") == 0;
    g_nth = atoi(number + 1);
    g_onwards = strchr(number + 1, '+') != nullptr;
    g_call = failing;
  }
}

void Append(const Text& path, const char* line) {
  const int file = static_cast<int>(
      syscall(SYS_openat, AT_FDCWD, path.data(),
              O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  syscall(SYS_write, file, line, strlen(line));
  syscall(SYS_close, file);
}

// Whether this call of `call` fails; sets `errno` then.
bool Fails(const char* call, int error) {
  if (strcmp(call, g_call.data()) != 0) {
    return false;
  }
  if (g_hold) {
    for (;;) {
      pause();
    }
  }
  const int number = ++g_count;
  if (number != g_nth && !(g_onwards && number > g_nth)) {
    return false;
  }
  if (number == g_nth) {
    Append(g_failed, "failed\n");
  }
  errno = error;
  return true;
}

template <class Function>
Function* Next(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool IsPipe(int descriptor) {
  struct stat status;
  return fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED pid_t fork() {
  if (g_late && g_count++ == 0) {
    while (!g_first_fork_may_go_on) {
      usleep(1000);
    }
  }
  return Fails("fork", EAGAIN) ? -1 : Next(&fork, "fork")();
}

EXPORTED pid_t waitpid(pid_t process, int* status, int options) {
  g_first_fork_may_go_on = true;
  return Fails("waitpid", ECHILD)
             ? -1
             : Next(&waitpid, "waitpid")(process, status, options);
}

EXPORTED int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                            void* (*body)(void*), void* argument) {
  return Fails("pthread_create", EAGAIN)
             ? EAGAIN
             : Next(&pthread_create, "pthread_create")(thread, attributes, body,
                                                       argument);
}

EXPORTED void* malloc(size_t size) {
  return Fails("malloc", ENOMEM) ? nullptr : __libc_malloc(size);
}

// By its type, because the name has several overloads where it is fortified.
using Openat = int(int, const char*, int, ...);
EXPORTED int openat(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = va_arg(arguments, unsigned);
  va_end(arguments);
  return Fails("openat", EMFILE)
             ? -1
             : Next<Openat>(nullptr, "openat")(directory, path, flags, mode);
}

// A write to a pipe lacks no resource, so the one for a stop never fails.
EXPORTED ssize_t write(int file, const void* bytes, size_t count) {
  return !IsPipe(file) && Fails("write", ENOSPC)
             ? -1
             : Next(&write, "write")(file, bytes, count);
}

EXPORTED int pipe(int* ends) {
  return Fails("pipe", EMFILE) ? -1 : Next(&pipe, "pipe")(ends);
}

EXPORTED void* dlopen(const char* path, int mode) {
  return Fails("dlopen", ENOENT) ? nullptr
                                 : Next(&dlopen, "dlopen")(path, mode);
}

EXPORTED FILE* fopen(const char* path, const char* mode) {
  return Fails("fopen", EMFILE) ? nullptr : Next(&fopen, "fopen")(path, mode);
}

EXPORTED char* realpath(const char* path, char* resolved) {
  return Fails("realpath", ENOENT)
             ? nullptr
             : Next(&realpath, "realpath")(path, resolved);
}

EXPORTED int execv(const char* path, char* const* vector) {
  if (g_term && strcmp(g_call.data(), "execv") == 0 &&
      access(g_failed.data(), F_OK) != 0) {
    Append(g_failed, "term\n");
    raise(SIGTERM);
  }
  return Fails("execv", EACCES) ? -1 : Next(&execv, "execv")(path, vector);
}

EXPORTED int kill(pid_t process, int number) {
  g_first_fork_may_go_on = true;
  if (process <= 0 && g_kills[0] != '\0') {
    Append(g_kills, process == 0 ? "0\n" : "-1\n");
    if (process < 0 || g_late) {
      return 0;
    }
  }
  if (process <= 0 && Fails("kill", EPERM)) {
    return -1;
  }
  return Next(&kill, "kill")(process, number);
}

EXPORTED int clock_gettime(clockid_t clock, timespec* time) {
  const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  if (g_clock != 0 && clock == CLOCK_REALTIME) {
    time->tv_sec = g_clock;
  }
  return result;
}

EXPORTED time_t time(time_t* result) {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  if (result != nullptr) {
    *result = now.tv_sec;
  }
  return now.tv_sec;
}
