// The launcher's process-wide state and the steps of its start-up.

#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "launcher/ChildProc.h"

// The running items by name. Holds the only reference to each, so removing or
// replacing an entry stops that item. Destroyed at exit, after the two below.
extern std::unordered_map<std::string, std::shared_ptr<ChildProc>> g_child_map;

// Taken by `main` alone, around its wait.
extern std::mutex g_process_mutex;

// What `main` waits on, once; every SIGTERM notifies it.
extern std::condition_variable g_process_condition;

// Reads the whole file at `path`, of any size, and stores its text up to the
// first NUL in `data`. False, with `data` left alone, when the file cannot be
// opened or is empty. Does not return when the file opens but cannot be read,
// as a directory: only the end of the file ends the reading. Throws
// std::bad_alloc, with `data` left alone, when there is no memory for the file.
bool ReadData(std::string path, std::string& data);

// The SIGTERM handler: wakes the stop thread, which empties `g_child_map`, one
// child after another, and then notifies `g_process_condition`. In a forked
// copy of the launcher it ends the copy as SIGTERM does by default. Does
// nothing for other signals. Async-signal-safe; keeps `errno`.
void sigterm_handler(int sig);

// Closes descriptors 0, 1 and 2 and installs `sigterm_handler`, with the thread
// behind it. To be called first, once, while there is no other thread.
void InitDaemon();
