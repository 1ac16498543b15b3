// The launcher: launcher <owner-name> <items-file>
//
// Threads: `main` loads the items and waits; each `ChildProc` has a supervision
// thread; the stop thread carries out a SIGTERM. `g_child_map_mutex` makes the
// race between a SIGTERM and `main`'s insertions one over order only. No
// `ChildProc` is destroyed under it, since that takes as long as its child
// needs to end, and every fork takes it, so that no forked copy inherits a map
// in the middle of a change.

#include "launcher/main.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <new>

#include "common/json/JsonObject.h"
#include "environment/LogConfig.h"
#include "environment/Logging.h"
#include "launcher/Heap.h"
#include "launcher/Items.h"
#include "launcher/Messages.h"
#include "launcher/StopThread.h"
#include "launcher/ThreadStacks.h"

namespace {

constexpr std::size_t kReadChunkBytes = 128;

// A stop by SIGTERM ends with 1, every failure at start-up with 0. Whoever
// starts launchers tells the two apart by it.
enum ExitStatus : int { kNotStarted = 0, kStopped = 1 };

std::mutex g_child_map_mutex;

// The process that `InitDaemon` was called in; its forked copies differ.
std::atomic<pid_t> g_launcher = 0;

bool g_can_stop = false;

}  // namespace

std::unordered_map<std::string, std::shared_ptr<ChildProc>> g_child_map;
std::mutex g_process_mutex;
std::condition_variable g_process_condition;

namespace {

void LockForFork() { g_child_map_mutex.lock(); }

void UnlockInLauncher() { g_child_map_mutex.unlock(); }

// The copy's condition variable remembers `main`, which waits in the launcher
// and not here. Destroying it at the copy's exit would wait for `main` for
// ever, so it is made anew.
void UnlockInCopy() {
  g_child_map_mutex.unlock();
  ::new (&g_process_condition) std::condition_variable;
}

// The work of a SIGTERM, on the stop thread.
void StopAll() {
  for (;;) {
    decltype(g_child_map)::node_type stopping;  // Destroyed behind the lock.
    const std::lock_guard lock(g_child_map_mutex);
    if (g_child_map.empty()) {
      break;
    }
    stopping = g_child_map.extract(g_child_map.begin());
  }
  g_process_condition.notify_all();
}

void StartItem(const std::string& owner, JsonObject item) {
  const std::string name = item.GetObject("name");
  auto child = std::make_shared<ChildProc>(owner, item);
  const std::lock_guard lock(g_child_map_mutex);
  // `child` now holds the earlier item of that name, if any; it is destroyed
  // behind the lock.
  g_child_map[name].swap(child);
}

int Launch(int argc, char** argv) {
  if (argc <= 2) {
    WriteEvent(kEventSource, kEventPriority, kWrongParametersEvent);
    return kNotStarted;
  }
  // A launcher that could not be stopped in order does not start.
  if (!g_can_stop) {
    WriteEvent(kEventSource, kEventPriority, "no pipe or thread for SIGTERM.");
    return kNotStarted;
  }
  const std::string owner = argv[1];
  const std::string path = argv[2];

  // There is no logger before InitLog, so this line and those about a failed
  // reading are always dropped. The order is fixed: the log is not touched for
  // an items file that cannot be read.
  __LOG__A(logger, LOGLEVEL_ERROR, kReadDataMessage, path.c_str());
  std::string data;
  if (!ReadData(path, data)) {
    __LOG__A(logger, LOGLEVEL_ERROR, kReadFailedMessage, path.c_str());
    return kNotStarted;
  }
  InitLog(owner);
  try {
    JsonObject items(data.data(), static_cast<unsigned int>(data.length()));
    WalkItems(
        items, [&](int, JsonObject item) { StartItem(owner, item); },
        [](int, JsonObject) {
          __LOG__A(logger, LOGLEVEL_ERROR, kNamelessMessage);
        });
  } catch (...) {
    __LOG__A(logger, LOGLEVEL_ERROR, kParseFailedMessage);
    return kNotStarted;
  }
  std::string().swap(data);
  TrimHeap();  // The document is gone, too.

  // Once and without a predicate, as required: any wake-up ends the launcher,
  // and a SIGTERM handled before this wait is not remembered.
  std::unique_lock lock(g_process_mutex);
  g_process_condition.wait(lock);
  return kStopped;
}

}  // namespace

bool ReadData(std::string path, std::string& data) {
  std::FILE* const file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    __LOG__A(logger, LOGLEVEL_ERROR, kOpenFailedMessage, path.c_str());
    return false;
  }
  // Only the end of the file ends the loop, as required; an error does not. So
  // a directory, which opens and cannot be read, keeps the launcher here for
  // ever.
  std::string content;
  while (std::feof(file) == 0) {
    std::array<char, kReadChunkBytes> chunk{};
    const std::size_t count = std::fread(chunk.data(), 1, chunk.size(), file);
    content.append(chunk.data(), count);
  }
  std::fclose(file);
  if (content.empty()) {
    __LOG__A(logger, LOGLEVEL_ERROR, kFileEmptyMessage, path.c_str());
    return false;
  }
  data = content.c_str();  // Up to the first NUL.
  return true;
}

void sigterm_handler(int sig) {
  if (sig != SIGTERM) {
    return;
  }
  const int saved_errno = errno;
  if (getpid() == g_launcher) {
    WakeStopThread();
  } else {
    // The pipe leads to the launcher, which this signal was not meant for.
    std::signal(SIGTERM, SIG_DFL);
    std::raise(SIGTERM);
  }
  errno = saved_errno;
}

void InitDaemon() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    close(descriptor);
  }
  g_launcher = getpid();
  LimitThreadStacks();
  ShareHeap();
  g_can_stop =
      pthread_atfork(LockForFork, UnlockInLauncher, UnlockInCopy) == 0 &&
      StartStopThread(StopAll);
  // Not by sigaction: signal() restarts interrupted calls, and an interrupted
  // waitpid would log an end that did not happen.
  std::signal(SIGTERM, sigterm_handler);
}

int main(int argc, char** argv) {
  InitDaemon();
  const int status = Launch(argc, argv);
  // Exit-time destruction is to be alone with the map.
  EndStopThread();
  return status;
}
