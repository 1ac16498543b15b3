#include "tools/status/Status.h"

#include <algorithm>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <unordered_map>
#include <unordered_set>

#include "launcher/Items.h"
#include "tools/status/Matching.h"

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kLauncherName = "launcher";

// `main` and the stop thread; every item that has not been given up has one.
constexpr std::size_t kOwnThreads = 2;

// While a launcher is this young it may not have come to all of its items.
constexpr std::chrono::seconds kLoadingTime{1};
constexpr std::chrono::milliseconds kLoadingTimePerItem{20};

// By which the clock may have been set since a launcher's start.
constexpr std::chrono::seconds kClockSlack{1};

// The supervision thread's stack has room for no more.
constexpr std::int64_t kMostArguments = kSupervisionStackBytes / sizeof(char*);

std::string FirstWord(std::string_view command_line) {
  return std::string(command_line.substr(0, command_line.find('\0')));
}

// Whether it is a launcher or one of a launcher's forked children.
bool LooksLikeLauncher(const Process& process) {
  return process.name == kLauncherName &&
         fs::path(FirstWord(process.command_line)).filename() ==
             kLauncherName &&
         !WithoutWords(process.command_line, 2).empty();
}

bool IsLauncher(const Process& process) {
  return LooksLikeLauncher(process) && process.threads > 1;
}

bool IsForkedChild(const Process& process) {
  return LooksLikeLauncher(process) && process.threads == 1;
}

// The process that was a launcher's forked child a moment ago, or the one that
// will execute its program in a moment.
bool IsStarting(const Worker& worker) {
  return worker.links == 1 && worker.command_line.empty();
}

// Each text ends at its first NUL, as it does for execv.
std::string CommandLine(JsonObject item) {
  std::string command_line;
  try {
    const std::int64_t length = ItemVectorLength(item);
    if (length > kMostArguments) {
      return "";
    }
    command_line.append(ItemProgram(item).c_str()) += '\0';
    for (std::int64_t i = 1; i < length; ++i) {
      command_line.append(ItemArgument(item, i).c_str()) += '\0';
    }
  } catch (const std::exception&) {
    return "";  // Its forked child ends before it executes anything.
  }
  return command_line;
}

// Of two items with one name the later counts.
void ParseItems(const std::string& text, const fs::path& directory,
                LauncherStatus* launcher) {
  std::unordered_map<std::string, std::size_t> places;
  const auto add = [&](int, JsonObject node) {
    ItemStatus item;
    item.name = static_cast<std::string>(node["name"]);
    item.program = directory / static_cast<std::string>(node["program"]);
    item.command_line = CommandLine(node);
    const auto [place, is_new] =
        places.try_emplace(item.name, launcher->items.size());
    if (is_new) {
      launcher->items.push_back(std::move(item));
    } else {
      launcher->items[place->second] = std::move(item);
    }
  };
  JsonObject items(text.c_str());
  WalkItems(items, add, [](int, JsonObject) {});
}

void ReadItems(const fs::path& directory, LauncherStatus* launcher) {
  std::error_code error;
  if (!fs::is_regular_file(launcher->items_file, error)) {
    launcher->problem = error ? error.message() : "not a regular file";
    return;
  }
  const auto age = fs::file_time_type::clock::now() -
                   fs::last_write_time(launcher->items_file, error);
  launcher->changed = age + kClockSlack < launcher->process.uptime;
  std::ifstream file(launcher->items_file, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file.good()) {
    launcher->problem = "cannot be read";
    return;
  }
  try {
    ParseItems(text, directory, launcher);
  } catch (...) {  // An AERROR, or what jsoncpp throws.
    launcher->problem = "cannot be parsed";
  }
}

// The state of the items that have been given no process, `waiting` of them.
// Every item that has not been given up has a thread.
ItemState StateOfWaiting(const LauncherStatus& launcher, std::size_t waiting) {
  if (!launcher.unassigned.empty()) {
    const bool all_run = launcher.unassigned.size() == waiting &&
                         std::ranges::none_of(launcher.unassigned, IsChain);
    return all_run ? ItemState::kRunning : ItemState::kNotRunning;
  }
  const std::size_t items = launcher.items.size();
  const std::size_t supervised =
      static_cast<std::size_t>(launcher.process.threads) - kOwnThreads;
  if (launcher.changed) {
    return ItemState::kNotRunning;
  }
  if (supervised >= items) {
    return ItemState::kBetweenStarts;
  }
  const bool loaded =
      launcher.process.uptime >= kLoadingTime + kLoadingTimePerItem * items;
  return loaded && items - supervised == waiting ? ItemState::kGivenUp
                                                 : ItemState::kNotRunning;
}

void SetStates(LauncherStatus* launcher) {
  const auto waits = [](const ItemStatus& item) { return !item.worker; };
  const auto waiting = std::ranges::count_if(launcher->items, waits);
  const ItemState state =
      StateOfWaiting(*launcher, static_cast<std::size_t>(waiting));
  for (ItemStatus& item : launcher->items) {
    item.state = item.worker ? item.state : state;
  }
}

class Finder {
 public:
  Finder(const std::vector<Process>& processes, uid_t user)
      : processes_(processes), user_(user) {
    for (const Process& process : processes) {
      children_[process.parent].push_back(&process);
      by_id_.emplace(process.id, &process);
    }
  }

  Status Find() {
    for (const Process& process : processes_) {
      if (process.user == user_ && IsLauncher(process)) {
        status_.launchers.push_back(Look(process));
      }
    }
    MarkShared();
    FindOrphans();
    return std::move(status_);
  }

 private:
  LauncherStatus Look(const Process& process) const {
    LauncherStatus launcher;
    launcher.process = process;
    launcher.owner = FirstWord(WithoutWords(process.command_line, 1));
    const fs::path directory = WorkingDirectory(process.id);
    launcher.items_file =
        directory / FirstWord(WithoutWords(process.command_line, 2));
    std::error_code unresolved;
    const fs::path canonical = fs::canonical(launcher.items_file, unresolved);
    launcher.items_file = unresolved ? launcher.items_file : canonical;
    ReadItems(directory, &launcher);
    std::vector<Worker> workers;
    for (const Process* const child : Children(process)) {
      workers.push_back(Follow(*child));
    }
    std::erase_if(workers, IsStarting);
    Match(std::move(workers), &launcher);
    SetStates(&launcher);
    return launcher;
  }

  std::vector<const Process*> Children(const Process& process) const {
    const auto found = children_.find(process.id);
    return found == children_.end() ? std::vector<const Process*>()
                                    : found->second;
  }

  // Along a chain, if `head` begins one, to the program at its end.
  Worker Follow(const Process& head) const {
    Worker worker{head, 0, ""};
    const Process* process = &head;
    while (IsForkedChild(*process)) {
      ++worker.links;
      const std::vector<const Process*> children = Children(*process);
      if (children.empty()) {
        return worker;
      }
      process = children.front();
    }
    worker.command_line = process->command_line;
    return worker;
  }

  void MarkShared() {
    std::map<fs::path, int> launchers;
    for (const LauncherStatus& launcher : status_.launchers) {
      ++launchers[launcher.items_file];
    }
    for (LauncherStatus& launcher : status_.launchers) {
      launcher.shared = launchers[launcher.items_file] > 1;
    }
  }

  void FindOrphans() {
    for (const LauncherStatus& launcher : status_.launchers) {
      for (const ItemStatus& item : launcher.items) {
        known_.insert(item.command_line);
      }
    }
    for (const Process& process : processes_) {
      if (process.user == user_ && IsOrphan(process)) {
        status_.orphans.push_back(Follow(process));
      }
    }
    std::erase_if(status_.orphans, IsStarting);
  }

  bool IsOrphan(const Process& process) const {
    const auto parent = by_id_.find(process.parent);
    if (IsForkedChild(process)) {
      return parent == by_id_.end() || !LooksLikeLauncher(*parent->second);
    }
    return !IsLauncher(process) && IsAdopted(process) && RunsAnItem(process);
  }

  // Whether the system's first process, or a user's service manager, has become
  // its parent.
  bool IsAdopted(const Process& process) const {
    const auto parent = by_id_.find(process.parent);
    return process.parent == 1 ||
           (parent != by_id_.end() && parent->second->name == "systemd");
  }

  bool RunsAnItem(const Process& process) const {
    for (int words = 0; words <= kInterpreterWords; ++words) {
      const std::string_view rest = WithoutWords(process.command_line, words);
      if (!rest.empty() && known_.contains(std::string(rest))) {
        return true;
      }
    }
    return false;
  }

  const std::vector<Process>& processes_;
  const uid_t user_;
  std::unordered_map<pid_t, std::vector<const Process*>> children_;
  std::unordered_map<pid_t, const Process*> by_id_;
  std::unordered_set<std::string> known_;
  Status status_;
};

}  // namespace

Status FindStatus(const std::vector<Process>& processes, uid_t user) {
  return Finder(processes, user).Find();
}

bool AllRun(const Status& status) {
  return std::ranges::all_of(
      status.launchers, [](const LauncherStatus& launcher) {
        return launcher.problem.empty() &&
               std::ranges::all_of(launcher.items, [](const ItemStatus& item) {
                 return item.state == ItemState::kRunning;
               });
      });
}
