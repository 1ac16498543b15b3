// The system calls that would do harm, or whose failure a test needs, replaced
// in the test program that links SystemCalls.cpp: the calls of the code under
// test bind to these instead of the C library's.
//
// kill is recorded; a signal to 0 or to a negative id is never sent. nanosleep,
// which is what the standard library's pauses come to, is shown to the test.
// The others go through unless a test sets a replacement.

#pragma once

#include <pthread.h>
#include <sys/types.h>
#include <time.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace system_calls {

// Undoes all replacements and forgets what was recorded.
void Reset();

// The (id, signal) pairs given to kill by this process.
std::vector<std::pair<pid_t, int>> Kills();

// The vectors given to execv by this process and its forked copies, the path
// first, recorded before the call goes through. `StartRecordingExec` goes
// first.
void StartRecordingExec(const std::string& file);
std::vector<std::vector<std::string>> Execs();

// Replacements; empty ones let the call through. That of pthread_create gives
// the error to fail with; 0 lets the call through.
void OnFork(std::function<pid_t()> replacement);
void OnWaitpid(std::function<pid_t(pid_t, int*, int)> replacement);
void OnExecv(std::function<int()> replacement);
void OnCreateThread(std::function<int()> replacement);

// Called with the time that nanosleep is asked for, before the call goes
// through: on the calling thread, also in forked copies.
void OnNanosleep(std::function<void(const timespec&)> observer);

// The C library's own.
pid_t RealFork();
pid_t RealWaitpid(pid_t process, int* status, int options);

}  // namespace system_calls
