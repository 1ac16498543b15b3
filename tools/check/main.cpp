// launcher-check: what the launcher would do with an items file.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <string>

#include "tools/check/Check.h"
#include "tools/check/Report.h"
#include "tools/text/Terminal.h"

namespace {

enum ExitStatus : int {
  kClean = 0,
  kWarnings = 1,  // only when they are asked for
  kErrors = 2,
  kUnusable = 3,  // wrong arguments, or a file that cannot be read
};

int StatusOf(const CheckResult& result, bool strict) {
  if (!result.readable) {
    return kUnusable;
  }
  if (CountFindings(result, Severity::kError) > 0) {
    return kErrors;
  }
  const bool warned = CountFindings(result, Severity::kWarning) > 0;
  return strict && warned ? kWarnings : kClean;
}

int Run(int argc, char** argv) {
  CLI::App app(
      "Says what the launcher would do with ITEMS-FILE, without doing "
      "it.",
      "launcher-check");
  std::string path;
  bool strict = false;
  bool json = false;
  app.add_option("ITEMS-FILE", path, "the items file")->required();
  app.add_flag("--strict", strict, "exit with status 1 on warnings, too");
  app.add_flag("--json", json, "write a JSON document");
  app.set_version_flag("--version", "launcher-check " LAUNCHER_VERSION);
  app.footer(
      "Exit status: 0 no errors, 1 warnings with --strict, 2 errors, 3 wrong\n"
      "arguments or an unreadable file.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kClean : kUnusable;
  }
  const CheckResult result = CheckItemsFile(path);
  std::cout << (json ? JsonReport(path, result)
                     : TextReport(path, result, MayColour(STDOUT_FILENO)));
  return StatusOf(result, strict);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "launcher-check: " << error.what() << "\n";
    return kUnusable;
  }
}
