// Processes and their threads, as /proc shows them. Linux only: the tests that
// use this are skipped elsewhere, where there is no sandbox.

#pragma once

#include <sys/types.h>

#include <map>
#include <set>
#include <string>
#include <vector>

// The first word after "<field>:" in the status file of `process`:
// StatusField(getpid(), "State") is "R". Empty when there is none.
std::string StatusField(pid_t process, const std::string& field);

// The signals in the set `field` ("SigCgt", "SigBlk", ...) of `process`.
std::set<int> StatusSignals(pid_t process, const std::string& field);

// The arguments of `process`, separated by blanks.
std::string CommandLine(pid_t process);

// The processes whose parent is `process`, in ascending order.
std::vector<pid_t> ChildrenOf(pid_t process);

// The threads of `process`, in any order; none when it is gone.
std::vector<pid_t> ThreadsOf(pid_t process);

// The number of threads of `process` that wait for a child: each of them has
// forked and knows its child's id. By design, a SIGTERM before that kills the
// launcher's own process group.
int ThreadsInWait(pid_t process);

// Whether `thread` of `process` is blocked in the system call `call`.
bool IsBlockedIn(pid_t process, pid_t thread, long call);

// Sends the signal `number` to one thread of another process.
void SignalThread(pid_t process, pid_t thread, int number);

// The processes of the session that `leader` leads or has led.
std::vector<pid_t> SessionOf(pid_t leader);

// Kills the processes of the session that `leader` leads or has led, except the
// caller, until none is left, because a chain grows meanwhile.
void EndSession(pid_t leader);

// The open descriptors of `process` and the files that they refer to; none when
// it is gone.
std::map<int, std::string> DescriptorsOf(pid_t process);
