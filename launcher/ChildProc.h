// ChildProc: one supervised item.
//
// From its construction to its destruction it keeps the item's program running,
// on a supervision thread of its own:
//
//   state     thread       entered when            left when
//   --------  -----------  ---------------------- -----------------------------
//   Starting  constructing the constructor begins  the supervision thread runs:
//                                                  to Forking, or to Ended when
//                                                  the flag is cleared already
//   Forking   supervision  a cycle begins          fork returns: to Waiting, to
//                                                  Child in the forked child,
//                                                  to Ended when it failed
//   Waiting   supervision  the child runs          waitpid returns: to Pausing
//   Child     supervision, fork returned 0         execv replaces the process;
//             in the                               the path is empty: to Ended;
//             forked child                         execv fails: to Pausing
//   Pausing   supervision  a child ended, or       50 ms later: to Forking, or
//                          execv failed            to Ended when the flag is
//                                                  cleared
//   Ended     supervision  the loop is left        never
//
// There is no limit on restarts and no growing delay. A forked child whose
// execv failed goes on as a supervisor of the same item, so a program that
// cannot be executed gives a chain of processes that grows by one every 50 ms.
// A forked child that reaches Ended ends as a process does when its last thread
// returns: with status 0, after exit-time destruction. (One that was forked
// while the launcher was inside `exit` skips the destruction.)
//
// The item, as it is read here:
//
//   "name"     the name in all messages; empty when missing
//   "program"  path of the executable, read before every start; no search
//   "argc"     number of arguments; missing means 0
//   "args"     the arguments, an object with the keys "0", "1", ...; a missing
//              key gives an empty argument
//
// A "program" that is an object or array ends the launcher: nothing catches the
// exception on the supervision thread. Such an "argc" or "args" ends the child
// alone. Messages go to `logger`.

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
  // "thread constructor failed", when the system refuses a thread. For an item
  // or a "name" of a wrong type jsoncpp's exception propagates.
  ChildProc(std::string owner_name, JsonObject item_node);

  // Stops the child (see `Stop`) and joins the supervision thread. While a
  // child runs this takes its death and the pause, 50 ms at least. Must not run
  // on the supervision thread itself. In a forked child of the process that
  // constructed the object there is no thread to join.
  ~ChildProc();

  ChildProc(const ChildProc&) = delete;
  ChildProc& operator=(const ChildProc&) = delete;

  // Clears the keep-running flag and sends SIGKILL to the last result of fork,
  // whatever it is: 0 before the first fork (the caller's process group, caller
  // included), -1 after a failed one (every process that may be signalled), or
  // a child that is gone already. Does not wait. A child that is being forked
  // at this moment is missed; the thread then ends when that child does. Safe
  // from any thread and in a forked child, whose flag is its own.
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
