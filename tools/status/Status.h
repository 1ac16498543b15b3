// The state of the launchers' items, derived from the process table and the
// items files, and the reports of it.
//
// A launcher has at least two threads. A forked child that could not execute
// its program keeps the launcher's arguments, has one thread, and continues as
// a supervisor: such children in a row are a chain.

#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/status/ProcessTable.h"

// The states of an item that is not a chain.
inline constexpr const char* kRunning = "running";
inline constexpr const char* kBetweenStarts = "between two starts";
inline constexpr const char* kNotRunning = "not running";  // cause unknown
// A fork has failed, and the launcher does not try again.
inline constexpr const char* kGivenUp = "given up";

// A program that a launcher has started, or a chain. Commands are arguments
// with a blank before each.
struct Worker {
  Process process;        // of a chain, the first
  std::size_t links = 0;  // the chain's length; 0 for a program
  std::string command;    // the program's; empty for a chain without one
};

// "running" or "chain of 12 processes".
std::string WorkerState(const Worker& worker);

struct ItemStatus {
  std::string name;
  std::string command;  // empty if its arguments cannot be built
  std::string state;
  // Empty also for a running item whose process could be another item's.
  std::optional<Worker> worker;
};

struct LauncherStatus {
  Process process;
  std::filesystem::path items_file;
  std::string problem;   // why the items file cannot be used, if so
  bool changed = false;  // the file, since the launcher's start
  bool shared = false;   // the file, with another launcher
  std::vector<ItemStatus> items;
  std::vector<Worker> unassigned;  // its children that may be any item's

  const std::string& Owner() const { return process.arguments[1]; }
};

struct Status {
  std::vector<LauncherStatus> launchers;
  // Chains and items' programs whose launcher no longer runs.
  std::vector<Worker> orphans;
};

// The launchers of `user` among `processes`, which ReadProcesses has returned.
Status FindStatus(const std::vector<Process>& processes, uid_t user);

// Whether the launcher's items are known and all run.
bool AllRun(const LauncherStatus& launcher);

// A table in 80 columns for each launcher.
std::string TableReport(const Status& status, bool coloured);

// A JSON document.
std::string JsonReport(const Status& status);
