#include "tools/status/Status.h"

#include <algorithm>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string_view>

#include "launcher/Items.h"

namespace fs = std::filesystem;

namespace {

// `main` and the stop thread. Every item has a thread unless it is given up.
constexpr std::size_t kOwnThreads = 2;

// A launcher younger than this may not have started all of its items.
constexpr std::chrono::seconds kLoadingTime{1};
constexpr std::chrono::milliseconds kLoadingTimePerItem{20};

// A forked child executes its program sooner than this.
constexpr std::chrono::seconds kExecutionTime{1};

// The clock may have been set by this much since a launcher's start.
constexpr std::chrono::seconds kClockSlack{1};

// The children of each process.
using Children = std::multimap<pid_t, const Process*>;

bool IsCalled(const Process& process, std::string_view name) {
  return !process.arguments.empty() &&
         fs::path(process.arguments[0]).filename() == name;
}

// Whether it is a launcher or one of a launcher's forked children.
bool LooksLikeLauncher(const Process& process) {
  return process.arguments.size() > 2 && IsCalled(process, "launcher");
}

bool IsLauncher(const Process& process) {
  return LooksLikeLauncher(process) && process.threads > 1;
}

bool IsForkedChild(const Process& process) {
  return LooksLikeLauncher(process) && process.threads == 1;
}

bool IsProgram(const Worker& worker) { return worker.links == 0; }

std::string Command(const std::vector<std::string>& arguments) {
  std::string command;
  for (const std::string& argument : arguments) {
    command += " " + argument;
  }
  return command;
}

// Follows the chain, if `head` begins one, to the program at its end.
Worker Follow(const Process& head, const Children& children) {
  Worker worker{head, 0, ""};
  const Process* process = &head;
  while (IsForkedChild(*process)) {
    ++worker.links;
    const auto child = children.find(process->id);
    if (child == children.end()) {
      return worker;
    }
    process = child->second;
  }
  worker.command = Command(process->arguments);
  return worker;
}

// Leaves out a process that may be about to execute its program: it still has
// the launcher's arguments, or none at all, as while `execv` replaces it.
void AddWorker(const Process& head, const Children& children,
               std::vector<Worker>& workers) {
  Worker worker = Follow(head, children);
  const bool is_young = head.uptime < kExecutionTime;
  if (!worker.command.empty() || worker.links > 1 ||
      (IsProgram(worker) && !is_young)) {
    workers.push_back(std::move(worker));
  }
}

// Each text ends at its first NUL, as it does for execv.
std::string ItemCommand(JsonObject item) {
  try {
    const std::int64_t length = ItemVectorLength(item);
    if (length > kLargestArgc + 1) {
      return "";
    }
    std::string command = std::string(" ") + ItemProgram(item).c_str();
    for (std::int64_t i = 1; i < length; ++i) {
      command += std::string(" ") + ItemArgument(item, i).c_str();
    }
    return command;
  } catch (const std::exception&) {
    return "";  // Its forked child ends before it executes anything.
  }
}

// Of two items with the same name, the later counts.
std::vector<ItemStatus> ParseItems(const std::string& text) {
  std::vector<ItemStatus> items;
  std::map<std::string, std::size_t> places;
  const auto add = [&](int, JsonObject node) {
    const auto name = static_cast<std::string>(node["name"]);
    const auto place = places.try_emplace(name, items.size()).first;
    items.resize(places.size());
    items[place->second] = {name, ItemCommand(node), "", std::nullopt};
  };
  JsonObject document(text.c_str());
  WalkItems(document, add, [](int, JsonObject) {});
  return items;
}

void ReadItems(LauncherStatus& launcher) {
  std::error_code error;
  if (!fs::is_regular_file(launcher.items_file, error)) {
    launcher.problem = error ? error.message() : "not a regular file";
    return;
  }
  const auto age = fs::file_time_type::clock::now() -
                   fs::last_write_time(launcher.items_file, error);
  launcher.changed = age + kClockSlack < launcher.process.uptime;
  std::ifstream file(launcher.items_file, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  try {
    launcher.items = ParseItems(text);
  } catch (...) {  // An AERROR or an exception of jsoncpp.
    launcher.problem = "cannot be read as JSON";
  }
}

// The number of items without a process.
std::size_t CountWaiting(const LauncherStatus& launcher) {
  const auto waits = [](const ItemStatus& item) { return !item.worker; };
  return static_cast<std::size_t>(std::ranges::count_if(launcher.items, waits));
}

// Whether a worker's command fits an item's, from the surest rule to the
// weakest.
using Rule = bool (*)(std::string_view command, std::string_view item);

bool IsSame(std::string_view command, std::string_view item) {
  return !command.empty() && command == item;
}

// An interpreter precedes the item's command, or `env` or "sh -c 'exec ...'"
// has executed it.
bool IsSimilar(std::string_view command, std::string_view item) {
  return !command.empty() && !item.empty() &&
         (command.ends_with(item) || item.ends_with(command));
}

// Moves the unassigned workers that fit an item to it.
void Assign(LauncherStatus& launcher, Rule fits) {
  std::erase_if(launcher.unassigned, [&](const Worker& worker) {
    for (ItemStatus& item : launcher.items) {
      if (!item.worker && fits(worker.command, item.command)) {
        item.worker = worker;
        return true;
      }
    }
    return false;
  });
}

void AssignWorkers(LauncherStatus& launcher) {
  Assign(launcher, IsSame);
  Assign(launcher, IsSimilar);
  if (launcher.unassigned.size() == 1 && CountWaiting(launcher) == 1) {
    Assign(launcher, [](auto, auto) { return true; });
  }
}

// The state of the items without a process.
const char* StateOfWaiting(const LauncherStatus& launcher) {
  const std::size_t waiting = CountWaiting(launcher);
  const std::vector<Worker>& unassigned = launcher.unassigned;
  if (unassigned.size() == waiting &&
      std::ranges::all_of(unassigned, IsProgram)) {
    return kRunning;
  }
  if (!unassigned.empty() || launcher.changed) {
    return kNotRunning;
  }
  const std::size_t items = launcher.items.size();
  const auto threads = static_cast<std::size_t>(launcher.process.threads);
  if (threads >= items + kOwnThreads) {
    return kBetweenStarts;
  }
  const bool is_loaded =
      launcher.process.uptime >= kLoadingTime + kLoadingTimePerItem * items;
  return is_loaded && threads + waiting == items + kOwnThreads ? kGivenUp
                                                               : kNotRunning;
}

LauncherStatus Look(const Process& process, const Children& children) {
  LauncherStatus launcher;
  launcher.process = process;
  launcher.items_file = WorkingDirectory(process.id) / process.arguments[2];
  ReadItems(launcher);
  const auto [first, last] = children.equal_range(process.id);
  for (auto child = first; child != last; ++child) {
    AddWorker(*child->second, children, launcher.unassigned);
  }
  AssignWorkers(launcher);
  const char* const waiting = StateOfWaiting(launcher);
  for (ItemStatus& item : launcher.items) {
    item.state = item.worker ? WorkerState(*item.worker) : waiting;
  }
  return launcher;
}

bool RunsAnItem(const Process& process, const Status& status) {
  const std::string command = Command(process.arguments);
  for (const LauncherStatus& launcher : status.launchers) {
    for (const ItemStatus& item : launcher.items) {
      if (IsSimilar(command, item.command)) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace

std::string WorkerState(const Worker& worker) {
  if (IsProgram(worker)) {
    return kRunning;
  }
  return "chain of " + std::to_string(worker.links) +
         (worker.links == 1 ? " process" : " processes");
}

Status FindStatus(const std::vector<Process>& processes, uid_t user) {
  Children children;
  // A user's service manager adopts orphans, too.
  std::set<pid_t> adopters{1};
  for (const Process& process : processes) {
    children.emplace(process.parent, &process);
    if (IsCalled(process, "systemd")) {
      adopters.insert(process.id);
    }
  }
  Status status;
  for (const Process& process : processes) {
    if (process.user == user && IsLauncher(process)) {
      status.launchers.push_back(Look(process, children));
    }
  }
  for (LauncherStatus& one : status.launchers) {
    for (const LauncherStatus& other : status.launchers) {
      std::error_code missing;
      one.shared |= &one != &other &&
                    fs::equivalent(one.items_file, other.items_file, missing);
    }
  }
  for (const Process& process : processes) {
    if (process.user == user && adopters.contains(process.parent) &&
        !IsLauncher(process) &&
        (IsForkedChild(process) || RunsAnItem(process, status))) {
      AddWorker(process, children, status.orphans);
    }
  }
  return status;
}

bool AllRun(const LauncherStatus& launcher) {
  const auto runs = [](const ItemStatus& item) {
    return item.state == kRunning;
  };
  return launcher.problem.empty() && std::ranges::all_of(launcher.items, runs);
}
