// The launcher: launcher <owner-name> <items-file>
//
// Threads: `main` loads the items and waits; each `ChildProc` has a supervision
// thread; the stop thread carries out a SIGTERM.
//
// `g_child_map_mutex` guards the map against simultaneous changes by `main` and
// the stop thread; their order is left to chance. No `ChildProc` is destroyed
// while the mutex is held, since that takes until the child has ended. Every
// fork takes the mutex, so that no forked child inherits a map in the middle of
// a change.

#include "launcher/main.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "common/json/JsonObject.h"
#include "environment/LogConfig.h"
#include "environment/Logging.h"
#include "launcher/Forks.h"
#include "launcher/Heap.h"
#include "launcher/Items.h"
#include "launcher/Messages.h"
#include "launcher/StopThread.h"

namespace {

constexpr std::size_t kReadChunkBytes = 128;

// Deliberate: a stop by SIGTERM ends with 1, a failed start with 0
// (docs/sharp-edges.md). Programs that start launchers tell them apart by it.
enum ExitStatus : int { kNotStarted = 0, kStopped = 1 };

std::mutex g_child_map_mutex;

// The process and the thread in which `InitDaemon` was called. The depth
// identifies the process, because ids are reused. The id, too, is needed: a
// signal may reach a forked child before its fork is counted.
constexpr int kNone = -1;
std::atomic<int> g_launcher_depth = kNone;
std::atomic<pid_t> g_launcher_id = 0;
pthread_t g_main_thread;

bool IsForkedChild() {
  return g_launcher_depth != kNone &&
         (g_launcher_depth != ForkDepth() || g_launcher_id != getpid());
}

}  // namespace

std::unordered_map<std::string, std::shared_ptr<ChildProc>> g_child_map;
std::mutex g_process_mutex;
std::condition_variable g_process_condition;

namespace {

void LockForFork() { g_child_map_mutex.lock(); }

void UnlockInParent() { g_child_map_mutex.unlock(); }

// The child's condition variable remembers `main`, which waits in the launcher
// and not here. Destroying it at the child's exit would wait for `main` for
// ever, so it is made anew.
void UnlockInChild() {
  g_child_map_mutex.unlock();
  ::new (&g_process_condition) std::condition_variable;
}

[[maybe_unused]] const bool g_handles_forks = [] {
  if (pthread_atfork(LockForFork, UnlockInParent, UnlockInChild) != 0) {
    std::abort();  // Out of memory.
  }
  return true;
}();

// The work of a SIGTERM.
void StopAll() {
  for (;;) {
    // Destroyed after the lock is released.
    decltype(g_child_map)::node_type stopping;
    const std::lock_guard lock(g_child_map_mutex);
    if (g_child_map.empty()) {
      break;
    }
    stopping = g_child_map.extract(g_child_map.begin());
  }
  g_process_condition.notify_all();
}

// For the handler, where there is no stop thread. Only `main` can do the work:
// a supervision thread would join itself. This may deadlock when the signal
// interrupts an allocation or an insertion, which is why there is a stop thread
// wherever the system allows one.
void StopAllInHandler() {
  if (IsExiting()) {
    return;
  }
  if (g_launcher_depth != kNone &&
      pthread_equal(pthread_self(), g_main_thread) == 0) {
    // NOLINTNEXTLINE(bugprone-bad-signal-to-kill-thread): there is a handler.
    pthread_kill(g_main_thread, SIGTERM);
    return;
  }
  StopAll();
}

void StartItem(const std::string& owner, JsonObject item) {
  const std::string name = item.GetObject("name");
  auto child = std::make_shared<ChildProc>(owner, item);
  const std::lock_guard lock(g_child_map_mutex);
  // `child` now holds the earlier item of that name, if any. It is destroyed
  // after the lock is released.
  g_child_map[name].swap(child);
}

// Starts the items in `data`. Returns false when it cannot be parsed or an item
// cannot be started; the items before that one run on.
bool StartItems(const std::string& owner, const std::string& data) {
  try {
    JsonObject items(data.data(), static_cast<unsigned int>(data.length()));
    WalkItems(
        items, [&](int, JsonObject item) { StartItem(owner, item); },
        [](int, JsonObject) {
          __LOG__A(logger, LOGLEVEL_ERROR, kNamelessMessage);
        });
    return true;
  } catch (...) {
    __LOG__A(logger, LOGLEVEL_ERROR, kParseFailedMessage);
    return false;
  }
}

bool LoadItems(const std::string& owner, const std::string& path) {
  // Deliberate: `logger` is set only by InitLog, so this message and those
  // about a failed reading are dropped (docs/sharp-edges.md). Otherwise a
  // launcher without a readable items file would make a log.
  __LOG__A(logger, LOGLEVEL_ERROR, kReadDataMessage, path.c_str());
  std::string data;
  if (!ReadData(path, data)) {
    __LOG__A(logger, LOGLEVEL_ERROR, kReadFailedMessage, path.c_str());
    return false;
  }
  InitLog(owner);
  return StartItems(owner, data);
}

// Deliberate: one wait without a predicate (docs/sharp-edges.md). Any wake-up
// ends the launcher, and it does not remember a SIGTERM handled before the
// wait; otherwise a SIGTERM during the loading of the items would end it.
void AwaitStop() {
  std::unique_lock lock(g_process_mutex);
  g_process_condition.wait(lock);
}

int Launch(int argc, char** argv) {
  if (argc <= 2) {
    WriteEvent(kEventSource, kEventPriority, kWrongParametersEvent);
    return kNotStarted;
  }
  if (!LoadItems(argv[1], argv[2])) {
    return kNotStarted;
  }
  TrimHeap();  // The file's text and document are gone.
  AwaitStop();
  return kStopped;
}

}  // namespace

bool ReadData(std::string path, std::string& data) {
  std::FILE* const file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    __LOG__A(logger, LOGLEVEL_ERROR, kOpenFailedMessage, path.c_str());
    return false;
  }
  // Deliberate: only the end of the file ends the loop; an error does not. So a
  // directory, which opens and cannot be read, keeps the launcher here forever
  // (docs/sharp-edges.md). Otherwise it would end with status 0, as for a file
  // that is missing.
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
  // Deliberate: up to the first NUL. A file with anything after it would be
  // faulty otherwise.
  data = content.c_str();
  return true;
}

void sigterm_handler(int sig) {
  if (sig != SIGTERM) {
    return;
  }
  const int saved_errno = errno;
  if (IsForkedChild()) {
    // The pipe leads to the launcher, which this signal was not meant for.
    std::signal(SIGTERM, SIG_DFL);
    std::raise(SIGTERM);
  } else if (!WakeStopThread()) {
    StopAllInHandler();
  }
  errno = saved_errno;
}

void InitDaemon() {
  // Deliberate: /dev/null does not take their place (docs/sharp-edges.md).
  // Otherwise the programs would not be started with closed descriptors.
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    close(descriptor);
  }
  g_launcher_id = getpid();
  g_launcher_depth = ForkDepth();
  g_main_thread = pthread_self();
  ShareHeap();
  StartStopThread(StopAll);  // The handler can do without.
  // signal() makes the system restart interrupted calls. Otherwise a waitpid
  // that a signal interrupts would log an end that did not happen.
  std::signal(SIGTERM, sigterm_handler);
}

int main(int argc, char** argv) {
  InitDaemon();
  const int status = Launch(argc, argv);
  // Exit-time destruction must be alone with the map.
  EndStopThread();
  AnnounceExit();
  return status;
}
