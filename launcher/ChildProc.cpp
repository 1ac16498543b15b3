#include "launcher/ChildProc.h"

#include <alloca.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>

#include "environment/Logging.h"
#include "launcher/Items.h"
#include "launcher/Messages.h"
#include "launcher/ThreadStacks.h"

namespace {

// The process that the supervision threads belong to. In its forked copies they
// do not exist.
std::atomic<pid_t> g_supervisor = 0;

}  // namespace

ChildProc::ChildProc(std::string owner_name, JsonObject item_node)
    : pid(0), running(true), item(nullptr) {
  item = item_node;
  owner = std::move(owner_name);
  name = static_cast<std::string>(item["name"]);
  g_supervisor = getpid();
  try {
    thread = std::make_shared<std::thread>([this] { Supervise(); });
  } catch (const std::system_error& error) {
    // Standard libraries word this differently; the text is fixed.
    throw std::system_error(error.code(), "thread constructor failed");
  }
}

ChildProc::~ChildProc() {
  Stop();
  if (getpid() != g_supervisor) {
    // Neither joined nor detached: both read a stack that may be unmapped by
    // now. Made anew in place, the handle lets go without either.
    ::new (thread.get()) std::thread;
  } else if (thread->joinable()) {
    thread->join();
  }
}

// The target is unguarded, as required: stopping an item that has not forked,
// or could not, ends what was started together with it.
void ChildProc::Stop() {
  running = false;
  kill(pid, SIGKILL);
}

// Runs in the launcher and, from the moment that fork returns 0, in the copy.
void ChildProc::Supervise() {
  GuardThreadStack();
  while (running) {
    const std::string program = ItemProgram(item);
    __LOG__A(logger, LOGLEVEL_DEBUG, kStartMessage, name.c_str());
    const pid_t child = fork();
    pid = child;
    if (child < 0) {
      // Not tried again, as required: this item's supervision is over.
      __LOG__A(logger, LOGLEVEL_ERROR, kForkFailedMessage, name.c_str());
      break;
    }
    if (child > 0) {
      Reap(child);
    } else if (program.empty()) {
      // Tested only in the copy, as required: the launcher forks every cycle.
      __LOG__A(logger, LOGLEVEL_ERROR, kNoProgramMessage, name.c_str());
      break;
    } else {
      Execute(program);
      // Still here, so execv failed. The copy does not exit: it goes on as a
      // supervisor of the same item, as required.
    }
    std::this_thread::sleep_for(kRestartPause);
  }
  running = false;
}

void ChildProc::Reap(pid_t child) {
  int status = 0;
  const pid_t ret = waitpid(child, &status, 0);
  __LOG__A(logger, LOGLEVEL_ERROR, kEndMessage, name.c_str(), child, ret,
           status);
}

// The copy's side of the fork: everything between fork and execv happens here.
// The launcher has other threads, and the copy has none of them, so this calls
// only what works without them:
//
//   ItemVectorLength, ItemArgument     memory alone
//   operator new and delete            fork keeps them usable
//   strdup, free                       fork keeps them usable
//   execv
//
// Returns when execv has failed.
void ChildProc::Execute(const std::string& program) {
  const std::int64_t n = ItemVectorLength(item);
  // On the stack, and gone with it: what execv does not replace leaks nothing.
  auto* const vector = static_cast<char**>(
      alloca((static_cast<std::size_t>(n) + 1) * sizeof(char*)));
  vector[0] = const_cast<char*>(program.c_str());
  for (std::int64_t i = 1; i < n; ++i) {
    vector[i] = strdup(ItemArgument(item, i).c_str());
  }
  vector[n] = nullptr;
  execv(program.c_str(), vector);
  for (std::int64_t i = 1; i < n; ++i) {
    std::free(vector[i]);
  }
}
