// The program launcher-check, and that the launcher does what it says.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "common/json/JsonObject.h"
#include "tests/support/Command.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TempDir.h"

namespace {

constexpr const char* kGood = R"({"0": {"name": "a", "program": "/bin/sh"}})";
constexpr const char* kOdd =
    R"({"0": {"name": "a", "program": "/bin/sh", "x": 1}})";
constexpr const char* kBad = R"({"0": {"name": "a"}})";

class LauncherCheck : public testing::Test {
 protected:
  CommandResult Run(const std::string& text,
                    std::vector<std::string> options = {}) {
    options.insert(options.begin(), LAUNCHER_CHECK);
    options.push_back(directory_.Write("items.json", text));
    return RunCommand(options);
  }

  JsonObject Json(const std::string& text) {
    return JsonObject(Run(text, {"--json"}).output.c_str());
  }

  TempDir directory_;
};

TEST_F(LauncherCheck, TellsErrorsByItsExitStatus) {
  EXPECT_EQ(Run(kGood).status, 0);
  EXPECT_EQ(Run(kGood, {"--strict"}).status, 0);
  EXPECT_EQ(Run(kOdd).status, 0);
  EXPECT_EQ(Run(kOdd, {"--strict"}).status, 1);
  EXPECT_EQ(Run(kBad).status, 2);
  EXPECT_EQ(Run(kBad, {"--strict"}).status, 2);
  EXPECT_EQ(Run("").status, 2);
}

TEST_F(LauncherCheck, TellsWrongUseAndUnreadableFilesByItsExitStatus) {
  const auto status = [](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), LAUNCHER_CHECK);
    return RunCommand(arguments).status;
  };
  EXPECT_EQ(status({}), 3);
  EXPECT_EQ(status({"--nonsense", "x"}), 3);
  EXPECT_EQ(status({"a", "b"}), 3);
  EXPECT_EQ(status({directory_.Path()}), 3);
  EXPECT_EQ(status({directory_.Path() / "none"}), 3);
}

TEST_F(LauncherCheck, ShowsHelpAndVersion) {
  const CommandResult help = RunCommand({LAUNCHER_CHECK, "--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.output.find("ITEMS-FILE"), std::string::npos);
  const CommandResult version = RunCommand({LAUNCHER_CHECK, "--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_TRUE(version.output.starts_with("launcher-check 1."));
}

TEST_F(LauncherCheck, ReportsForPeopleAndForMachines) {
  EXPECT_NE(Run(kOdd).output.find("items.json:1:43: warning: item 0: \"x\" "),
            std::string::npos);
  EXPECT_EQ(Json(kOdd)["findings"].GetArraySize(), 1U);
}

TEST_F(LauncherCheck, ColoursOnATerminalOnly) {
  const std::string file = directory_.Write("items.json", kBad);
  const auto has_colour = [&](const std::string& no_colour,
                              const std::string& terminal) {
    return RunOnTerminal({LAUNCHER_CHECK, file},
                         {{"NO_COLOR", no_colour}, {"TERM", terminal}})
               .output.find('\x1b') != std::string::npos;
  };
  EXPECT_TRUE(has_colour("", "xterm"));
  EXPECT_FALSE(has_colour("1", "xterm"));
  EXPECT_FALSE(has_colour("", "dumb"));
  EXPECT_EQ(Run(kBad).output.find('\x1b'), std::string::npos);
}

// Waits for the arguments that the launcher really gives to a script, which
// writes them down, a NUL behind each.
std::string AwaitWords(const std::string& file) {
  std::string words;
  EXPECT_TRUE(Eventually([&] {
    std::ifstream in(file, std::ios::binary);
    words.assign(std::istreambuf_iterator<char>(in), {});
    return words.ends_with(std::string(".\0", 2));
  }));
  return words;
}

TEST_F(LauncherCheck, ShowsTheVectorThatTheLauncherExecutes) {
  REQUIRE_SANDBOX();
  const std::string out = directory_.Path() / "words";
  const std::string script = directory_.Write(
      "script", "#!/bin/bash\nprintf '%s\\0' \"$0\" \"$@\" . > " + out +
                    ".new\nmv " + out + ".new " + out + "\nexec sleep 60\n");
  chmod(script.c_str(), 0700);
  const std::string items =
      R"({"0": {"name": "a", "program": ")" + script +
      R"(", "argc": 7, "args": {"0": "a b", "1": 3.14, "2": "\u0009\u00e9\n",
      "4": null, "5": true, "6": "x\u0000y", "7": "never"}}})";
  LauncherRun launcher;
  launcher.StartItems(items);
  const std::string words = AwaitWords(out);
  std::string expected;
  JsonObject report = Json(items);
  JsonObject vector = report["items"][0]["vector"];
  for (int i = 0; i < static_cast<int>(vector.GetArraySize()); ++i) {
    expected += static_cast<std::string>(vector[i]) + std::string(1, '\0');
  }
  EXPECT_EQ(words, expected + std::string(".\0", 2));
}

TEST_F(LauncherCheck, CallsAnErrorWhatEndsTheLauncherAtItsStart) {
  REQUIRE_SANDBOX();
  for (const char* const text :
       {"", "{", "[]", "5", "nul", R"({"0": 5})", R"({"0": null, "1": []})",
        R"({"0": {"name": []}})", "{} {", "null", "{}", R"({"1": 5})",
        R"({"0": null})", R"({"0": {}, "1": null, "3": 5})"}) {
    const bool ends = Run(text).status == 2;
    LauncherRun launcher;
    launcher.StartItems(text);
    if (ends) {
      EXPECT_EQ(launcher.Wait(), 0) << text;
    } else {
      EXPECT_TRUE(Eventually([&] {
        return StatusSignals(launcher.Process(), "SigCgt").contains(SIGTERM);
      }));
      const int status = launcher.Stop();
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << text;
    }
  }
}

TEST_F(LauncherCheck, CallsAnErrorWhatAbortsTheChild) {
  REQUIRE_SANDBOX();
  for (const std::string rest :
       {R"("argc": "1")", R"("argc": 1, "args": ["x"])",
        R"("argc": 1, "args": {"0": {}})", R"("argc": [])"}) {
    const std::string items =
        R"({"0": {"name": "a", "program": "/bin/true", )" + rest + "}}";
    EXPECT_NE(Run(items).output.find("SIGABRT"), std::string::npos);
    LauncherRun launcher;
    launcher.StartItems(items);
    const auto records = launcher.Await("is killed.");
    ASSERT_FALSE(records.empty());
    const std::string& message = records[0].message;
    const int status = std::stoi(message.substr(message.rfind(' ')));
    EXPECT_EQ(WTERMSIG(status), SIGABRT) << rest;
  }
}

}  // namespace
