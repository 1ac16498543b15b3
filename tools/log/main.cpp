// launcher-log: shows the history of the launcher's items from its log.

#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "environment/AppPaths.h"
#include "logger/Format.h"
#include "tools/log/History.h"
#include "tools/log/LogReader.h"
#include "tools/log/Plot.h"
#include "tools/log/Report.h"
#include "tools/log/Table.h"
#include "tools/text/Terminal.h"
#include "tools/text/Times.h"

namespace {

enum ExitStatus : int {
  kDone = 0,
  kTrouble = 1,   // only with --alert
  kUnusable = 3,  // wrong arguments, or a file that cannot be read or written
};

struct Options {
  std::string path;
  bool json = false;
  bool follow = false;
  bool events = false;
  bool alert = false;
  std::string since;
  std::vector<std::string> items;
  std::string plot;
};

void Declare(CLI::App& app, Options& options) {
  app.add_option("LOG-FILE", options.path, "the log; by default, your own");
  app.add_flag("--json", options.json, "write a JSON document");
  app.add_flag("--follow", options.follow,
               "follow the log: a live table on a\n"
               "terminal, a line for each event otherwise")
      ->excludes("--json");
  app.add_flag("--events", options.events,
               "list what happened, a line for each event")
      ->excludes("--json");
  app.add_flag("--alert", options.alert,
               "show only problems; exit with 1 if there are any")
      ->excludes("--follow")
      ->excludes("--events");
  app.add_option(
         "--since", options.since,
         std::string("only what was logged since TIME:\n") + kSinceForms)
      ->type_name("TIME");
  app.add_option("--item", options.items,
                 "only the item called NAME; may be given more than once")
      ->type_name("NAME")
      ->allow_extra_args(false);
  app.add_option("--plot", options.plot,
                 "also draw a picture, one lane per item over time")
      ->type_name("FILE.svg")
      ->excludes("--follow");
  app.set_version_flag("--version", "launcher-log " LAUNCHER_VERSION);
  app.footer(
      "Exit status: 0 done, 1 with --alert: something needs attention,\n"
      "3 wrong arguments, or a file that cannot be read or written.");
}

// Also for a process of another user.
bool Exists(std::int64_t process) {
  return process > 0 && process <= std::numeric_limits<pid_t>::max() &&
         (kill(static_cast<pid_t>(process), 0) == 0 || errno == EPERM);
}

Selection SelectionOf(const Options& options) {
  Selection selection;
  selection.names.insert(options.items.begin(), options.items.end());
  if (!options.since.empty()) {
    selection.since = ParseSince(options.since, Now());
    if (!selection.since) {
      throw std::runtime_error("--since: not a time: " + options.since +
                               "\nwrite " + kSinceForms);
    }
  }
  return selection;
}

class Program {
 public:
  explicit Program(const Options& options)
      : options_(options),
        history_(SelectionOf(options), !options.plot.empty()),
        reader_(options.path, [this](std::string_view line) { Add(line); }),
        lists_events_(options.events) {}

  ExitStatus Execute() {
    const bool live =
        options_.follow && !options_.events && TakesEscapes(STDOUT_FILENO);
    const bool exists = reader_.Open();
    if (!exists && !options_.follow) {
      throw std::runtime_error(options_.path + ": " + std::strerror(ENOENT));
    }
    if (!exists && !live) {
      std::cerr << "launcher-log: " << options_.path
                << ": does not exist yet\n";
    }
    reader_.ReadAll();
    if (options_.follow) {
      lists_events_ = !live;
      Follow(live);
      return kDone;
    }
    CheckInput();
    const ExitStatus status = Show();
    WritePlot();
    return status;
  }

 private:
  void Add(std::string_view line) {
    const auto event = ParseLine(line);
    if (!event) {
      history_.AddUnrecognised();
    } else if (history_.Add(*event) && lists_events_) {
      std::cout << EventLine(*event);
    }
  }

  void CheckInput() const {
    const LogTotals& totals = history_.Totals();
    if (!totals.has_lines && totals.unrecognised > 0) {
      throw std::runtime_error(
          options_.path + ": not a log: no line has the layout of a log line");
    }
    for (const std::string& name : history_.UnknownNames()) {
      throw std::runtime_error("--item: the log does not mention " + name);
    }
  }

  Report MakeReport() const {
    return {history_, options_.path, reader_.Files(), {Now(), &Exists}};
  }

  // Returns once the output has no reader.
  void Follow(bool live) {
    constexpr std::chrono::milliseconds kTablePause{1000};
    constexpr std::chrono::milliseconds kLinePause{200};
    while (std::cout.good()) {
      reader_.ReadNew();
      if (live) {
        const TerminalSize size = SizeOf(STDOUT_FILENO);
        std::cout << Screenful(MakeReport().Table(size.columns), size);
      }
      std::cout << std::flush;
      std::this_thread::sleep_for(live ? kTablePause : kLinePause);
    }
  }

  ExitStatus Show() const {
    const std::size_t width =
        isatty(STDOUT_FILENO) == 1 ? SizeOf(STDOUT_FILENO).columns : kAnyWidth;
    const Report report = MakeReport();
    const std::string alerts = options_.alert ? report.Alerts(width) : "";
    if (options_.json) {
      std::cout << report.Json();
    } else if (options_.alert) {
      std::cout << alerts;
    } else if (!options_.events) {
      std::cout << report.Table(width);
    }
    return alerts.empty() ? kDone : kTrouble;
  }

  void WritePlot() {
    if (options_.plot.empty()) {
      return;
    }
    history_.AddOpenRuns();
    std::ofstream file(options_.plot, std::ios::binary);
    file << PlotSvg(history_, {Now(), &Exists}) << std::flush;
    if (!file.good()) {
      throw std::runtime_error(options_.plot + ": " + std::strerror(errno));
    }
  }

  const Options& options_;
  History history_;
  LogReader reader_;
  bool lists_events_;
};

int RunProgram(int argc, char** argv) {
  CLI::App app("Shows from the log how the launcher's items ran and ended.",
               "launcher-log");
  Options options;
  Declare(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kUnusable;
  }
  if (options.path.empty()) {
    options.path = GetLogPath() + "/" + LogFileName("launcher");
  }
  return Program(options).Execute();
}

}  // namespace

int main(int argc, char** argv) {
  // So that each flush is one write.
  std::ios::sync_with_stdio(false);
  try {
    return RunProgram(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "launcher-log: " << error.what() << "\n";
    return kUnusable;
  }
}
