// launcher-log: what became of the launcher's items, as its log tells.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "environment/AppPaths.h"
#include "tools/text/Terminal.h"
#include "tools/log/History.h"
#include "tools/log/LogReader.h"
#include "tools/log/Plot.h"
#include "tools/log/Progress.h"
#include "tools/log/Report.h"
#include "tools/log/Times.h"

namespace {

enum ExitStatus : int {
  kDone = 0,
  kUnusable = 3,  // wrong arguments, or a file that cannot be read or written
};

struct Options {
  std::string path;
  bool json = false;
  bool follow = false;
  std::string since;
  std::vector<std::string> items;
  std::string plot;
};

void Declare(CLI::App* app, Options* options) {
  app->add_option("LOG-FILE", options->path,
                  "the log; without it, the launcher's own");
  CLI::Option* const json =
      app->add_flag("--json", options->json, "write a JSON document");
  CLI::Option* const follow =
      app->add_flag("--follow", options->follow,
                    "go on with what is logged from now on: a live table on a\n"
                    "terminal, a line for each event otherwise");
  app->add_option("--since", options->since,
                  "only what was logged since TIME: 90s, 15m, 2h or 3d ago,\n"
                  "or 2026-11-21 or 2026-11-21T06:20:31, UTC")
      ->type_name("TIME");
  app->add_option("--item", options->items,
                  "only the item called NAME; may be given more than once")
      ->type_name("NAME")
      ->allow_extra_args(false);
  CLI::Option* const plot =
      app->add_option("--plot", options->plot,
                      "also draw a picture, one lane per item over time")
          ->type_name("FILE.svg");
  follow->excludes(json)->excludes(plot);
  app->set_version_flag("--version", "launcher-log " LAUNCHER_VERSION);
  app->footer(
      "Exit status: 0 done, 3 wrong arguments, or a file that cannot be read\n"
      "or written.");
}

int Fail(const std::string& what) {
  std::cerr << "launcher-log: " << what << "\n";
  return kUnusable;
}

class Program {
 public:
  Program(const Options& options, EventFilter filter)
      : options_(options),
        history_([this](const ProgramRun& run) { AddRun(run); }),
        reader_(
            options.path, std::move(filter),
            [this](const LogEvent& event) { AddEvent(event); },
            [this] { history_.AddUnreadable(); }) {}

  int Execute() {
    const int error = reader_.Open();
    if (error != 0 && !(options_.follow && error == ENOENT)) {
      return Fail(options_.path + ": " + std::strerror(error));
    }
    {
      Progress progress(reader_.TotalBytes());
      reader_.ReadAll([&](std::uint64_t done) { progress.Show(done); });
    }
    if (options_.follow) {
      Follow();
    }
    std::cout << (options_.json
                      ? JsonReport(reader_.Files(), history_, Now())
                      : TableReport(reader_.Files(), history_, Now()));
    return WritePlot();
  }

 private:
  void AddEvent(const LogEvent& event) {
    if (history_.Lines() == 0) {
      plot_.Begin(event.time);
    }
    history_.Add(event);
    if (telling_) {
      std::cout << EventLine(event);
    }
  }

  void AddRun(const ProgramRun& run) {
    if (!options_.plot.empty()) {
      plot_.Add(run);
    }
  }

  // Until the output is gone, or a signal ends the program.
  void Follow() {
    const bool live = TakesEscapes(STDOUT_FILENO);
    constexpr std::chrono::milliseconds kTablePause{1000};
    constexpr std::chrono::milliseconds kLinePause{200};
    telling_ = !live;
    while (std::cout.good()) {
      reader_.ReadNew();
      if (live) {
        std::cout << Screenful(TableReport(reader_.Files(), history_, Now()),
                               SizeOf(STDOUT_FILENO));
      }
      std::cout << std::flush;
      std::this_thread::sleep_for(live ? kTablePause : kLinePause);
    }
  }

  int WritePlot() {
    if (options_.plot.empty()) {
      return kDone;
    }
    std::ofstream file(options_.plot, std::ios::binary);
    file << plot_.Svg(history_) << std::flush;
    return file.good() ? kDone
                       : Fail(options_.plot + ": " + std::strerror(errno));
  }

  const Options& options_;
  Plot plot_;
  History history_;
  LogReader reader_;
  bool telling_ = false;
};

int RunProgram(int argc, char** argv) {
  CLI::App app("Tells from the launcher's log what became of its items.",
               "launcher-log");
  Options options;
  Declare(&app, &options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kUnusable;
  }
  EventFilter filter;
  filter.names.insert(options.items.begin(), options.items.end());
  if (!options.since.empty()) {
    filter.since = ParseSince(options.since, Now());
    if (!filter.since) {
      return Fail("--since: not a time: " + options.since);
    }
  }
  if (options.path.empty()) {
    options.path = GetLogPath() + "/launcher.log";
  }
  return Program(options, std::move(filter)).Execute();
}

}  // namespace

int main(int argc, char** argv) {
  // What is flushed goes out in one piece.
  std::ios::sync_with_stdio(false);
  try {
    return RunProgram(argc, argv);
  } catch (const std::exception& error) {
    return Fail(error.what());
  }
}
