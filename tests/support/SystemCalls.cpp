#include "tests/support/SystemCalls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <mutex>

#include "tests/support/Coverage.h"

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
std::function<int()> g_create_thread;
std::function<void(const timespec&)> g_nanosleep;

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
  g_create_thread = nullptr;
  g_nanosleep = nullptr;
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

void OnFork(std::function<pid_t()> replacement) {
  g_fork = std::move(replacement);
}

void OnWaitpid(std::function<pid_t(pid_t, int*, int)> replacement) {
  g_waitpid = std::move(replacement);
}

void OnExecv(std::function<int()> replacement) {
  g_execv = std::move(replacement);
}

void OnCreateThread(std::function<int()> replacement) {
  g_create_thread = std::move(replacement);
}

void OnNanosleep(std::function<void(const timespec&)> observer) {
  g_nanosleep = std::move(observer);
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
  if (process <= 0) {
    return 0;
  }
  return system_calls::Next(&::kill, "kill")(process, number);
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
  return error != 0 ? error
                    : system_calls::Next(&::pthread_create, "pthread_create")(
                          thread, attributes, body, argument);
}

__attribute__((visibility("default"))) int nanosleep(const timespec* time,
                                                     timespec* rest) {
  if (system_calls::g_nanosleep) {
    system_calls::g_nanosleep(*time);
  }
  return system_calls::Next(&::nanosleep, "nanosleep")(time, rest);
}

}  // extern "C"
