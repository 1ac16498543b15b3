// launcher-status: shows the programs that this user's launchers run now.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tools/status/Status.h"
#include "tools/text/Characters.h"
#include "tools/text/Terminal.h"

namespace {

enum ExitStatus : int {
  kAllRun = 0,
  kNotAllRun = 1,
  kNoLauncher = 2,
  kUnusable = 3,  // wrong arguments, or no process table
};

int Fail(const std::string& what, int status) {
  std::cerr << "launcher-status: " << what << "\n";
  return status;
}

// Writes the id if there is exactly one.
int ShowProcess(const Status& status, const std::string& name) {
  if (status.launchers.empty()) {
    return Fail("this user runs no launcher", kNoLauncher);
  }
  std::vector<ItemStatus> found;
  for (const LauncherStatus& launcher : status.launchers) {
    std::ranges::copy_if(launcher.items, std::back_inserter(found),
                         [&](const auto& item) { return item.name == name; });
  }
  const std::string shown = Printable(name);
  if (found.empty()) {
    return Fail("no launcher has an item called " + shown, kUnusable);
  }
  if (found.size() > 1) {
    return Fail("several launchers have an item called " + shown, kNotAllRun);
  }
  if (found[0].state != kRunning) {
    return Fail(shown + ": " + found[0].state, kNotAllRun);
  }
  if (!found[0].worker) {
    return Fail(shown + ": its process cannot be distinguished from others",
                kNotAllRun);
  }
  std::cout << found[0].worker->process.id << "\n";
  return kAllRun;
}

// Returns once the output has no reader.
int Watch() {
  const bool live = TakesEscapes(STDOUT_FILENO);
  while (std::cout.good()) {
    const std::string table =
        TableReport(FindStatus(ReadProcesses(), geteuid()), false);
    std::cout << (live ? Screenful(table, SizeOf(STDOUT_FILENO)) : table + "\n")
              << std::flush;
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  return kAllRun;
}

int Run(int argc, char** argv) {
  CLI::App app("Shows what this user's launchers run right now.",
               "launcher-status");
  app.set_version_flag("--version", "launcher-status " LAUNCHER_VERSION);
  app.require_option(0, 1);
  bool json = false;
  app.add_flag("--json", json, "write a JSON document");
  bool watch = false;
  app.add_flag("--watch", watch, "show the table again every second");
  std::optional<std::string> item;
  app.add_option("--pid", item,
                 "write the process id of the item called NAME, and\n"
                 "nothing else")
      ->type_name("NAME");
  app.footer(
      "Exit status: 0 all items run, 1 an item does not, 2 no launcher runs,\n"
      "3 wrong arguments, no item called NAME, or no readable process table.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kAllRun : kUnusable;
  }
  if (watch) {
    return Watch();
  }
  const Status status = FindStatus(ReadProcesses(), geteuid());
  if (item) {
    return ShowProcess(status, *item);
  }
  std::cout << (json ? JsonReport(status)
                     : TableReport(status, MayColour(STDOUT_FILENO)));
  if (status.launchers.empty()) {
    return kNoLauncher;
  }
  return std::ranges::all_of(status.launchers, AllRun) ? kAllRun : kNotAllRun;
}

}  // namespace

int main(int argc, char** argv) {
  // Writes each table in one piece.
  std::ios::sync_with_stdio(false);
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    return Fail(error.what(), kUnusable);
  }
}
