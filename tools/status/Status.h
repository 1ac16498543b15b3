// What the launchers' items are doing, worked out from the process table and
// the items files.
//
// A launcher has at least two threads. A forked child that could not execute
// its program keeps the launcher's command line, has one thread, and goes on as
// a supervisor: such children in a row are a chain.

#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/status/ProcessTable.h"

enum class ItemState {
  kRunning,
  kBetweenStarts,  // its program has ended and will start again
  kChain,          // its program cannot be executed; processes pile up
  kNotRunning,     // why is not known
  kGivenUp,        // a fork has failed; the launcher does not try again
};

// A program that a launcher has started, or a chain.
struct Worker {
  Process process;           // of a chain, the first
  std::size_t links = 0;     // the chain's length; 0 for a program
  std::string command_line;  // empty for a chain without a program at its end
};

inline bool IsChain(const Worker& worker) { return worker.links > 0; }

struct ItemStatus {
  std::string name;
  std::filesystem::path program;
  std::string command_line;  // as a Process has it; empty if it cannot be
  ItemState state = ItemState::kNotRunning;
  // Empty also for a running item whose process could be another item's.
  std::optional<Worker> worker;
};

struct LauncherStatus {
  Process process;
  std::string owner;
  std::filesystem::path items_file;
  std::string problem;   // why the items file cannot be used; or empty
  bool changed = false;  // the file, since the launcher's start
  bool shared = false;   // the file, with another launcher
  std::vector<ItemStatus> items;
  std::vector<Worker> unassigned;  // its children that may be any item's
};

struct Status {
  std::vector<LauncherStatus> launchers;
  // Chains without a launcher, and programs that run an item's command line but
  // are nobody's: a launcher that is gone has left them.
  std::vector<Worker> orphans;
};

// The launchers of `user` among `processes`, which ReadProcesses has returned.
Status FindStatus(const std::vector<Process>& processes, uid_t user);

// Whether all items of all launchers run.
bool AllRun(const Status& status);
