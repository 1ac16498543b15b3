// The launcher's process-wide state and the steps of its start-up.

#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "launcher/ChildProc.h"

// The running items by name, with the only reference to each: removing or
// replacing an entry stops that item. Destroyed at exit, after the two below.
extern std::unordered_map<std::string, std::shared_ptr<ChildProc>> g_child_map;

// Taken by `main` only, around its wait.
extern std::mutex g_process_mutex;

// `main` waits on it once; every SIGTERM notifies it.
extern std::condition_variable g_process_condition;

// Reads the whole file at `path` and stores its text up to the first NUL in
// `data`. Returns false, and leaves `data` alone, when the file cannot be
// opened or is empty. Never returns when the file opens but cannot be read, for
// example a directory. Throws std::bad_alloc, and leaves `data` alone.
bool ReadData(std::string path, std::string& data);

// The SIGTERM handler: empties `g_child_map`, one child after another, and then
// notifies `g_process_condition`. The stop thread does both or, where
// `InitDaemon` has not started one, the handler itself. Ends a forked child of
// the launcher as SIGTERM does by default. Does nothing for other signals.
// Async-signal-safe where there is a stop thread; keeps `errno`.
void sigterm_handler(int sig);

// Closes descriptors 0, 1 and 2, starts the stop thread and installs
// `sigterm_handler`. Must be called first and once, on the main thread, before
// other threads exist.
void InitDaemon();
