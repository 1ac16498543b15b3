// ChildProc: one supervised item. From its construction to its destruction it
// keeps the item's program running, on a supervision thread of its own:
//
//   state     thread        left when
//   --------  ------------  --------------------------------------------------
//   Starting  constructing  the supervision thread runs: to Forking
//   Forking   supervision   fork returns: to Waiting, in the forked child to
//                           Child, or to Ended when it failed
//   Waiting   supervision   waitpid returns: to Pausing
//   Child     supervision   execv replaces the forked child. An empty path: to
//                           Ended. A failed execv: to Pausing
//   Pausing   supervision   50 ms have passed: to Forking
//   Ended     supervision   never
//
// Once the keep-running flag is cleared, Starting and Pausing lead to Ended.
//
// There is no limit on restarts and no growing delay. A forked child whose
// execv failed goes on as a supervisor of the same item, so a program that
// cannot be executed gives a chain of processes that grows by one every 50 ms.
// A forked child that reaches Ended ends with status 0, after exit-time
// destruction unless it was forked while the launcher was inside `exit`.
//
// A "program" that is an object or array ends the launcher: nothing catches the
// exception on the supervision thread. An "argc" or "args" of a wrong type ends
// only the forked child.

#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "common/json/JsonObject.h"

class ChildProc {
 public:
  // Copies the value of `item_node` and starts the supervision thread, which
  // may have forked before the constructor returns. Throws std::system_error,
  // "thread constructor failed", when the system refuses a thread, and
  // jsoncpp's exception for an item or a "name" of a wrong type.
  ChildProc(std::string owner_name, JsonObject item_node);

  // Stops the child (see `Stop`) and joins the supervision thread, which takes
  // at least 50 ms while a child runs. Must not run on the supervision thread
  // itself. A forked child of the constructing process has no thread to join.
  ~ChildProc();

  ChildProc(const ChildProc&) = delete;
  ChildProc& operator=(const ChildProc&) = delete;

  // Clears the keep-running flag and sends SIGKILL to the last result of fork:
  // a child, even if it is gone already, 0 before the first fork (the caller's
  // process group, caller included), -1 after a failed one (every process that
  // may be signalled). Does not wait. Misses a child that is being forked at
  // this moment; the thread then ends when that child does. Safe from any
  // thread and in a forked child, whose flag is its own.
  void Stop();

 private:
  static void* Run(void* self) noexcept;
  void Supervise();
  void Wait(pid_t child);
  void Execute(const std::string& program);

  std::atomic<int> pid;
  std::atomic<bool> running;
  std::string owner;
  std::string name;
  JsonObject item;
  std::shared_ptr<std::thread> thread;
};
