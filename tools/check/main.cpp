// launcher-check: predicts how the launcher would act on an items file.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <string>

#include "tools/check/Check.h"
#include "tools/check/Findings.h"
#include "tools/text/Terminal.h"

namespace {

enum ExitStatus : int {
  kClean = 0,
  kWarnings = 1,  // only with --strict
  kErrors = 2,
  kUnusable = 3,  // wrong arguments, or a file that cannot be read
};

int StatusOf(const CheckResult& result, bool strict) {
  if (!result.readable) {
    return kUnusable;
  }
  if (CountFindings(result.findings, Severity::kError) > 0) {
    return kErrors;
  }
  return strict && !result.findings.empty() ? kWarnings : kClean;
}

// Writes the corrected file to standard output, if it can be corrected, and the
// corrections to standard error. Returns the file to check.
CheckResult Fix(CheckResult file) {
  const auto fixed = file.text ? FixItems(*file.text) : std::nullopt;
  if (!fixed) {
    std::cerr << "not corrected: the file cannot be read as a list of items\n";
    return file;
  }
  std::cout << fixed->text;
  for (const std::string& change : fixed->changes) {
    std::cerr << "corrected: " << change << "\n";
  }
  return {true, fixed->text, {}, {}};
}

int Run(int argc, char** argv) {
  CLI::App app(
      "Says what the launcher would do with ITEMS-FILE, without doing "
      "it.",
      "launcher-check");
  std::string path;
  app.add_option("ITEMS-FILE", path, "the items file, or - for standard input")
      ->required();
  bool strict = false;
  app.add_flag("--strict", strict, "exit with status 1 on warnings");
  bool json = false;
  app.add_flag("--json", json, "write a JSON document");
  bool fix = false;
  app.add_flag("--fix", fix, "write the corrected file")->excludes("--json");
  app.set_version_flag("--version", "launcher-check " LAUNCHER_VERSION);
  app.footer(
      "Exit status: 0 no errors, 1 warnings with --strict, 2 errors, 3 wrong\n"
      "arguments or an unreadable file.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kClean : kUnusable;
  }
  CheckResult file = ReadItemsFile(path);
  if (fix) {
    file = Fix(std::move(file));
  }
  const CheckResult result = CheckItems(std::move(file));
  const std::string name = path == kStandardInput ? "(standard input)" : path;
  (fix ? std::cerr : std::cout)
      << (json ? JsonReport(name, result)
               : TextReport(name, result,
                            MayColour(fix ? STDERR_FILENO : STDOUT_FILENO)));
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
