// launcher-status: what this user's launchers run right now.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tools/status/Report.h"
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

struct Options {
  bool json = false;
  bool watch = false;
  std::optional<std::string> item;
};

void Declare(CLI::App* app, Options* options) {
  CLI::Option* const json =
      app->add_flag("--json", options->json, "write a JSON document");
  CLI::Option* const watch = app->add_flag("--watch", options->watch,
                                           "show the table again every second");
  CLI::Option* const pid =
      app->add_option("--pid", options->item,
                      "write the process id of the item called NAME, and\n"
                      "nothing else")
          ->type_name("NAME");
  json->excludes(watch)->excludes(pid);
  watch->excludes(pid);
  app->set_version_flag("--version", "launcher-status " LAUNCHER_VERSION);
  app->footer(
      "Exit status: 0 all items run, 1 an item does not, 2 no launcher runs, "
      "3\n"
      "wrong arguments, or no process table.");
}

int Fail(const std::string& what, int status) {
  std::cerr << "launcher-status: " << what << "\n";
  return status;
}

// Writes the id if there is exactly one.
int ShowProcess(const Status& status, const std::string& name) {
  std::vector<const ItemStatus*> items;
  for (const LauncherStatus& launcher : status.launchers) {
    for (const ItemStatus& item : launcher.items) {
      if (item.name == name) {
        items.push_back(&item);
      }
    }
  }
  if (items.empty()) {
    return Fail("no launcher has an item called " + Printable(name), kUnusable);
  }
  if (items.size() > 1) {
    return Fail("several launchers have an item called " + Printable(name),
                kNotAllRun);
  }
  const ItemStatus& item = *items[0];
  if (item.state != ItemState::kRunning) {
    return Fail(Printable(name) + ": " + StateText(item), kNotAllRun);
  }
  if (!item.worker) {
    return Fail(Printable(name) + ": its process cannot be told from others",
                kNotAllRun);
  }
  std::cout << item.worker->process.id << "\n";
  return kAllRun;
}

// Until the output is gone, or a signal ends the program.
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
  Options options;
  Declare(&app, &options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kAllRun : kUnusable;
  }
  if (options.watch) {
    return Watch();
  }
  const Status status = FindStatus(ReadProcesses(), geteuid());
  if (status.launchers.empty() && options.item) {
    return Fail("no launcher of this user runs", kNoLauncher);
  }
  if (options.item) {
    return ShowProcess(status, *options.item);
  }
  std::cout << (options.json ? JsonReport(status)
                             : TableReport(status, MayColour(STDOUT_FILENO)));
  if (status.launchers.empty()) {
    return kNoLauncher;
  }
  return AllRun(status) ? kAllRun : kNotAllRun;
}

}  // namespace

int main(int argc, char** argv) {
  // Each table goes out in one piece.
  std::ios::sync_with_stdio(false);
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    return Fail(error.what(), kUnusable);
  }
}
