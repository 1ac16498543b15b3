// The system calls that would do harm, or whose failure a test needs, replaced
// in the test program that links SystemCalls.cpp: the calls of the code under
// test bind to these instead of the C library's.
//
// kill is recorded; a signal to 0 or to a negative id is never sent. All other
// calls go through unless a test sets a replacement.

#pragma once

#include <pthread.h>
#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace system_calls {

// Undoes all replacements and forgets the recorded calls.
void Reset();

// The (id, signal) pairs given to kill by this process.
std::vector<std::pair<pid_t, int>> Kills();

// The vectors given to execv by this process and its forked children, the path
// first, recorded before the call goes through. `StartRecordingExec` must be
// called first.
void StartRecordingExec(const std::string& file);
std::vector<std::vector<std::string>> Execs();

// Replacements; an empty one lets the call through. Those of pthread_create and
// pipe return the error to fail with; 0 lets the call through.
void OnFork(std::function<pid_t()> replacement);
void OnWaitpid(std::function<pid_t(pid_t, int*, int)> replacement);
void OnExecv(std::function<int()> replacement);
void OnMadvise(std::function<int()> replacement);
void OnCreateThread(std::function<int()> replacement);
void OnPipe(std::function<int()> replacement);
void OnGetpid(std::function<pid_t()> replacement);

// Observers, called on the calling thread, also in forked children. That of
// nanosleep, which the standard library's pauses come to, gets its time before
// the call goes through. That of kill is called afterwards, those of the others
// before.
void OnNanosleep(std::function<void(const timespec&)> observer);
void OnKill(std::function<void()> observer);
void OnClose(std::function<void(int descriptor)> observer);
void OnFread(std::function<void(std::size_t size, std::size_t count)> observer);
void OnTrim(std::function<void()> observer);
void OnMallopt(std::function<void(int option, int value)> observer);
void OnJoin(std::function<void()> observer);

// Called on each new thread before its body.
void OnThreadStart(std::function<void()> observer);

// The C library's own.
pid_t RealFork();
pid_t RealWaitpid(pid_t process, int* status, int options);

}  // namespace system_calls
