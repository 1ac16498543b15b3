// ChildProc: one supervised item.
//
// From its construction to its destruction it keeps the item's program running,
// on a supervision thread of its own:
//
//   state     entered when                left when
//   --------  --------------------------  ------------------------------------
//   Starting  the constructor has made    at once: to Forking, or to Ended if
//             the thread                  the flag is cleared already
//   Forking   a cycle begins              fork returns: to Waiting in the
//                                         launcher, to Child in the copy, to
//                                         Ended when it failed
//   Waiting   the child runs              waitpid returns: to Pausing
//   Child     fork returned 0 (only in    execv replaces the process; the
//             the forked copy)            program's path is empty: to Ended;
//                                         execv fails: to Pausing
//   Pausing   a child ended, or execv     50 ms later: to Forking, or to Ended
//             failed                      if the flag is cleared
//   Ended     the loop was left           never
//
// There is no limit on restarts and no growing delay. A copy whose execv failed
// goes on as a supervisor of the same item, so a program that cannot be
// executed gives a chain of processes that grows by one every 50 ms. A copy
// that reaches Ended ends as a process does when its last thread returns: with
// status 0, after exit-time destruction.
//
// The item, as it is read here:
//
//   "name"     the name in all messages
//   "program"  path of the executable, read before every start; no search
//   "argc"     number of arguments; missing means 0
//   "args"     the arguments, an object with the keys "0", "1", ...; a missing
//              key gives an empty argument
//
// A "program" that is an object or array ends the launcher (an exception that
// nothing catches on the supervision thread); such an "argc" or "args" ends the
// child alone. Messages go to `logger`.

#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "common/json/JsonObject.h"

class ChildProc {
 public:
  // Takes a deep copy of `item_node` and starts the supervision thread, which
  // may have forked before the constructor returns. Throws std::system_error,
  // "thread constructor failed", when the system refuses a thread, and what
  // jsoncpp throws for an item or a "name" of a wrong type.
  ChildProc(std::string owner_name, JsonObject item_node);

  // Stops the child (see `Stop`) and waits until the supervision thread has
  // seen it: while a child runs that is its death and the pause, 50 ms at
  // least. Must not run on the supervision thread itself. In a forked copy of
  // the process that constructed the object there is no thread to wait for.
  ~ChildProc();

  ChildProc(const ChildProc&) = delete;
  ChildProc& operator=(const ChildProc&) = delete;

  // Clears the keep-running flag and sends SIGKILL to the last result of fork,
  // whatever it is: 0 before the first fork (the process group of the caller,
  // caller included), -1 after a failed one (every process that may be
  // signalled), or a child that is gone already. Does not wait. A child forked
  // at this very moment is missed: then the thread ends when that child does.
  // Safe from any thread and in a forked copy, whose flag is its own.
  void Stop();

 private:
  void Supervise();
  void Reap(pid_t child);
  void Execute(const std::string& program);

  std::atomic<int> pid;
  std::atomic<bool> running;
  std::string owner;
  std::string name;
  JsonObject item;
  std::shared_ptr<std::thread> thread;
};
