#include "launcher/ChildProc.h"

#include <alloca.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <system_error>
#include <type_traits>
#include <utility>

#include "environment/Logging.h"
#include "launcher/Forks.h"
#include "launcher/Items.h"
#include "launcher/Messages.h"
#include "launcher/ThreadStacks.h"

namespace {

// The `ForkDepth` of the process that has the supervision threads. Its forked
// children do not have them.
std::atomic<int> g_supervisor = 0;

bool IsForkedChild() { return ForkDepth() != g_supervisor; }

// The handle that `thread` is made of. A std::thread takes no attributes, so
// ours get their handle from `CreateThread`.
pthread_t& HandleOf(std::thread& thread) {
  static_assert(std::is_standard_layout_v<std::thread> &&
                    sizeof(std::thread) == sizeof(pthread_t),
                "a std::thread is a handle and nothing else");
  return reinterpret_cast<pthread_t&>(thread);
}

}  // namespace

ChildProc::ChildProc(std::string owner_name, JsonObject item_node)
    : pid(0), running(true), item(nullptr) {
  // Not as an initialiser: the copy of a view is a view, and the document that
  // it points into is gone once the items are loaded. Assignment copies the
  // value.
  item = item_node;
  owner = std::move(owner_name);
  name = static_cast<std::string>(item["name"]);
  g_supervisor = ForkDepth();
  // Starting.
  thread = std::make_shared<std::thread>();
  pthread_t handle;
  if (const int error = CreateThread(&handle, Run, this); error != 0) {
    // The standard libraries word this differently; users see this text.
    throw std::system_error(error, std::generic_category(),
                            "thread constructor failed");
  }
  HandleOf(*thread) = handle;
}

ChildProc::~ChildProc() {
  Stop();
  if (thread == nullptr) {
    return;
  }
  if (IsForkedChild()) {
    // Joining and detaching would both read the thread's stack, which may be
    // unmapped by now. A new handle in place of the old one avoids both.
    ::new (thread.get()) std::thread;
  } else if (thread->joinable()) {
    thread->join();
  }
}

// Deliberate: the target is `pid` as it is, also 0 and -1
// (docs/sharp-edges.md). Otherwise stopping an item that has not forked yet, or
// could not fork, would leave the processes that were started with it running.
void ChildProc::Stop() {
  running = false;
  kill(pid, SIGKILL);
}

// Deliberate: an exception that reaches this function ends the process
// (docs/sharp-edges.md). Otherwise the launcher would run on without an item
// whose values have the wrong type.
void* ChildProc::Run(void* self) noexcept {
  GuardThreadStack();
  static_cast<ChildProc*>(self)->Supervise();
  return nullptr;
}

// Runs in the launcher and, from the moment that fork returns 0, in the forked
// child.
void ChildProc::Supervise() {
  while (running) {
    // Forking.
    const std::string program = ItemProgram(item);
    __LOG__A(logger, LOGLEVEL_DEBUG, kStartMessage, name.c_str());
    const pid_t child = fork();
    pid = child;
    if (child < 0) {
      // Deliberate: a failed fork is final (docs/sharp-edges.md). Otherwise
      // every item would go on forking on a machine that is out of processes.
      __LOG__A(logger, LOGLEVEL_ERROR, kForkFailedMessage, name.c_str());
      break;
    }
    if (child > 0) {
      Wait(child);
    } else if (program.empty()) {
      // Deliberate: the path is tested here, in the forked child, and the
      // launcher forks every cycle (docs/sharp-edges.md). Otherwise the log
      // would show no end of a child for an item without a program.
      __LOG__A(logger, LOGLEVEL_ERROR, kNoProgramMessage, name.c_str());
      break;
    } else {
      Execute(program);
      // Deliberate: after a failed execv the forked child goes on as a
      // supervisor of the item (docs/sharp-edges.md). Otherwise a program that
      // appears later would not be started by the chain that waits for it.
    }
    // Pausing.
    std::this_thread::sleep_for(kRestartPause);
  }
  // Ended.
  running = false;
  if (IsForkedChild() && IsExiting()) {
    // The launcher was inside `exit` at the fork. The C library may hold a lock
    // there, which this process would wait for.
    _exit(0);
  }
}

// Waiting.
void ChildProc::Wait(pid_t child) {
  int status = 0;
  const pid_t ret = waitpid(child, &status, 0);
  __LOG__A(logger, LOGLEVEL_ERROR, kEndMessage, name.c_str(), child, ret,
           status);
}

// Child: everything between fork and execv happens here. The launcher has other
// threads, and the forked child has none of them, so this calls only functions
// that work without them:
//
//   ItemVectorLength, ItemArgument     use only memory
//   operator new and delete            fork keeps them usable
//   strdup, free                       fork keeps them usable
//   execv
//
// Returns when execv has failed.
void ChildProc::Execute(const std::string& program) {
  const std::int64_t n = ItemVectorLength(item);
  // On the stack, which execv replaces; a failed execv leaks nothing.
  auto* const vector = static_cast<char**>(
      alloca((static_cast<std::size_t>(n) + 1) * sizeof(char*)));
  vector[0] = const_cast<char*>(program.c_str());
  for (std::int64_t i = 1; i < n; ++i) {
    vector[i] = strdup(ItemArgument(item, i).c_str());
  }
  // Deliberate: replaces the path when "argc" is -1. A program that is to get
  // no argument at all would get one otherwise.
  vector[n] = nullptr;
  execv(program.c_str(), vector);
  for (std::int64_t i = 1; i < n; ++i) {
    std::free(vector[i]);
  }
}
