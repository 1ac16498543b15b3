#include "tests/support/SystemCalls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <mutex>

#include "tests/support/Coverage.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace system_calls {
namespace {

constexpr char kRecordEnd = '\x1e';

template <class Function>
Function* Next(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::mutex g_mutex;
std::vector<std::pair<pid_t, int>> g_kills;
std::string g_exec_file;
std::function<pid_t()> g_fork;
std::function<pid_t(pid_t, int*, int)> g_waitpid;
std::function<int()> g_execv;
std::function<int()> g_madvise;
std::function<int()> g_create_thread;
std::function<int()> g_pipe;
std::function<pid_t()> g_getpid;
std::function<void(const timespec&)> g_nanosleep;
std::function<void()> g_kill;
std::function<void(int)> g_close;
std::function<void(std::size_t, std::size_t)> g_fread;
std::function<void()> g_trim;
std::function<void()> g_join;
std::function<void()> g_thread_start;

struct Thread {
  void* (*body)(void*);
  void* argument;
};

void* RunThread(void* argument) {
  const std::unique_ptr<Thread> thread(static_cast<Thread*>(argument));
  g_thread_start();
  return thread->body(thread->argument);
}

void RecordExec(const char* path, char* const* vector) {
  if (g_exec_file.empty()) {
    return;
  }
  std::string record(path);
  record += '\0';
  for (; *vector != nullptr; ++vector) {
    record.append(*vector) += '\0';
  }
  record += kRecordEnd;
  const int file = open(g_exec_file.c_str(),
                        O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  [[maybe_unused]] const ssize_t count =
      write(file, record.data(), record.size());
  close(file);
}

}  // namespace

void Reset() {
  const std::lock_guard lock(g_mutex);
  g_kills.clear();
  g_exec_file.clear();
  g_fork = nullptr;
  g_waitpid = nullptr;
  g_execv = nullptr;
  g_madvise = nullptr;
  g_create_thread = nullptr;
  g_pipe = nullptr;
  g_getpid = nullptr;
  g_nanosleep = nullptr;
  g_kill = nullptr;
  g_close = nullptr;
  g_fread = nullptr;
  g_trim = nullptr;
  g_join = nullptr;
  g_thread_start = nullptr;
}

std::vector<std::pair<pid_t, int>> Kills() {
  const std::lock_guard lock(g_mutex);
  return g_kills;
}

void StartRecordingExec(const std::string& file) { g_exec_file = file; }

std::vector<std::vector<std::string>> Execs() {
  std::vector<std::vector<std::string>> records;
  std::ifstream file(g_exec_file, std::ios::binary);
  std::string record;
  while (std::getline(file, record, kRecordEnd) && !file.eof()) {
    std::vector<std::string>& texts = records.emplace_back();
    for (std::size_t start = 0; start < record.size();) {
      texts.emplace_back(record.c_str() + start);
      start += texts.back().size() + 1;
    }
  }
  return records;
}

void OnFork(std::function<pid_t()> hook) { g_fork = std::move(hook); }

void OnWaitpid(std::function<pid_t(pid_t, int*, int)> hook) {
  g_waitpid = std::move(hook);
}

void OnExecv(std::function<int()> hook) { g_execv = std::move(hook); }

void OnMadvise(std::function<int()> hook) { g_madvise = std::move(hook); }

void OnCreateThread(std::function<int()> hook) {
  g_create_thread = std::move(hook);
}

void OnPipe(std::function<int()> hook) { g_pipe = std::move(hook); }

void OnGetpid(std::function<pid_t()> hook) { g_getpid = std::move(hook); }

void OnNanosleep(std::function<void(const timespec&)> hook) {
  g_nanosleep = std::move(hook);
}

void OnKill(std::function<void()> hook) { g_kill = std::move(hook); }

void OnClose(std::function<void(int)> hook) { g_close = std::move(hook); }

void OnFread(std::function<void(std::size_t, std::size_t)> hook) {
  g_fread = std::move(hook);
}

void OnTrim(std::function<void()> hook) { g_trim = std::move(hook); }

void OnJoin(std::function<void()> hook) { g_join = std::move(hook); }

void OnThreadStart(std::function<void()> hook) {
  g_thread_start = std::move(hook);
}

pid_t RealFork() { return Next(&::fork, "fork")(); }

pid_t RealWaitpid(pid_t process, int* status, int options) {
  return Next(&::waitpid, "waitpid")(process, status, options);
}

}  // namespace system_calls

extern "C" {

__attribute__((visibility("default"))) int kill(pid_t process, int number) {
  {
    const std::lock_guard lock(system_calls::g_mutex);
    system_calls::g_kills.emplace_back(process, number);
  }
  const int result =
      process <= 0 ? 0 : system_calls::Next(&::kill, "kill")(process, number);
  if (system_calls::g_kill) {
    system_calls::g_kill();
  }
  return result;
}

__attribute__((visibility("default"))) pid_t fork() {
  return system_calls::g_fork ? system_calls::g_fork()
                              : system_calls::RealFork();
}

__attribute__((visibility("default"))) pid_t waitpid(pid_t process, int* status,
                                                     int options) {
  return system_calls::g_waitpid
             ? system_calls::g_waitpid(process, status, options)
             : system_calls::RealWaitpid(process, status, options);
}

__attribute__((visibility("default"))) int execv(const char* path,
                                                 char* const* vector) {
  system_calls::RecordExec(path, vector);
  KeepCoverage();
  return system_calls::g_execv
             ? system_calls::g_execv()
             : system_calls::Next(&::execv, "execv")(path, vector);
}

__attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
    void* argument) {
  const int error =
      system_calls::g_create_thread ? system_calls::g_create_thread() : 0;
  if (error != 0) {
    return error;
  }
  if (system_calls::g_thread_start) {
    argument = new system_calls::Thread{body, argument};
    body = system_calls::RunThread;
  }
  return system_calls::Next(&::pthread_create, "pthread_create")(
      thread, attributes, body, argument);
}

__attribute__((visibility("default"))) int pthread_join(pthread_t thread,
                                                        void** result) {
  if (system_calls::g_join) {
    system_calls::g_join();
  }
  return system_calls::Next(&::pthread_join, "pthread_join")(thread, result);
}

__attribute__((visibility("default"))) int pipe(int* ends) {
  if (const int error = system_calls::g_pipe ? system_calls::g_pipe() : 0;
      error != 0) {
    errno = error;
    return -1;
  }
  return system_calls::Next(&::pipe, "pipe")(ends);
}

__attribute__((visibility("default"))) pid_t getpid() {
  return system_calls::g_getpid ? system_calls::g_getpid()
                                : system_calls::Next(&::getpid, "getpid")();
}

__attribute__((visibility("default"))) int close(int descriptor) {
  if (system_calls::g_close) {
    system_calls::g_close(descriptor);
  }
  return system_calls::Next(&::close, "close")(descriptor);
}

__attribute__((visibility("default"))) size_t fread(void* buffer, size_t size,
                                                    size_t count, FILE* file) {
  if (system_calls::g_fread) {
    system_calls::g_fread(size, count);
  }
  return system_calls::Next(&::fread, "fread")(buffer, size, count, file);
}

__attribute__((visibility("default"))) int madvise(void* address, size_t length,
                                                   int advice) {
  return system_calls::g_madvise ? system_calls::g_madvise()
                                 : system_calls::Next(&::madvise, "madvise")(
                                       address, length, advice);
}

#ifdef __GLIBC__

__attribute__((visibility("default"))) int malloc_trim(size_t keep) {
  if (system_calls::g_trim) {
    system_calls::g_trim();
  }
  return system_calls::Next(&::malloc_trim, "malloc_trim")(keep);
}

#endif

__attribute__((visibility("default"))) int nanosleep(const timespec* time,
                                                     timespec* rest) {
  if (system_calls::g_nanosleep) {
    system_calls::g_nanosleep(*time);
  }
  return system_calls::Next(&::nanosleep, "nanosleep")(time, rest);
}

}  // extern "C"
