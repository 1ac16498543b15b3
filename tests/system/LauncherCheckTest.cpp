// The program launcher-check. Its findings are compared with real launchers.

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
#include "tests/support/Files.h"
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

TEST_F(LauncherCheck, ShowsErrorsByItsExitStatus) {
  EXPECT_EQ(Run(kGood).status, 0);
  EXPECT_EQ(Run(kGood, {"--strict"}).status, 0);
  EXPECT_EQ(Run(kOdd).status, 0);
  EXPECT_EQ(Run(kOdd, {"--strict"}).status, 1);
  EXPECT_EQ(Run(kBad).status, 2);
  EXPECT_EQ(Run(kBad, {"--strict"}).status, 2);
  EXPECT_EQ(Run("").status, 2);
}

TEST_F(LauncherCheck, ShowsWrongUseAndUnreadableFilesByItsExitStatus) {
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

// Waits for the arguments that the launcher really gives to a script. The
// script writes them to a file, with a NUL after each.
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

TEST_F(LauncherCheck, FindsFaultsThatEndTheLauncherAtItsStart) {
  REQUIRE_SANDBOX();
  for (const char* const text :
       {"", "{", "[]", "5", "nul", R"({"0": 5})", R"({"0": null, "1": []})",
        R"({"0": {"name": []}})", "{} {", "null", "{}", R"({"1": 5})",
        R"({"0": null})", R"({"0": {}, "1": null, "3": 5})"}) {
    const bool ends =
        Run(text).output.find("with status 0") != std::string::npos;
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

TEST_F(LauncherCheck, FindsFaultsThatAbortTheForkedChild) {
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

// Whether the launcher's child has a child, which has one, too.
bool IsChain(pid_t launcher) {
  const auto first = ChildrenOf(launcher);
  const auto second = first.empty() ? first : ChildrenOf(first[0]);
  return !second.empty() && !ChildrenOf(second[0]).empty();
}

TEST_F(LauncherCheck, FindsFaultsThatLeaveAChainOfProcesses) {
  REQUIRE_SANDBOX();
  const auto file = [&](const std::string& name, const std::string& content) {
    const std::string path = directory_.Write(name, content);
    chmod(path.c_str(), 0755);
    return path;
  };
  const std::string looping =
      file("looping", "#!" + std::string(directory_.Path()) + "/looping\n");
  for (const std::string& rest :
       {std::string("\"/no/such/program\""),
        "\"" + file("text", "hello\n") + "\"",
        "\"" + file("windows", "MZ") + "\"", "\"" + looping + "\"",
        R"("/bin/true", "argc": 1, "args": {"0": ")" +
            std::string(std::size_t{128} * 1024, 'x') + "\"}"}) {
    const std::string items =
        R"({"0": {"name": "a", "program": )" + rest + "}}";
    const CommandResult result = Run(items);
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.output.find("in a chain that grows"), std::string::npos);
    LauncherRun launcher;
    launcher.StartItems(items);
    EXPECT_TRUE(Eventually([&] { return IsChain(launcher.Process()); }))
        << rest.substr(0, 60);
  }
}

std::string ItemsWithArgc(const std::string& program, int argc) {
  return R"({"0": {"name": "a", "program": ")" + program + R"(", "argc": )" +
         std::to_string(argc) + "}}";
}

TEST_F(LauncherCheck, KnowsTheLargestArgc) {
  REQUIRE_SANDBOX();
  int good = 0;
  int bad = 65536;
  while (bad - good > 1) {
    const int middle = (good + bad) / 2;
    (Run(ItemsWithArgc("/bin/true", middle)).status == 0 ? good : bad) = middle;
  }
  const std::string out = directory_.Path() / "count";
  const std::string script =
      directory_.Write("script", "#!/bin/sh\necho $# > " + out + ".new\nmv " +
                                     out + ".new " + out + "\nexec sleep 60\n");
  chmod(script.c_str(), 0700);
  LauncherRun launcher;
  launcher.StartItems(ItemsWithArgc(script, good));
  EXPECT_TRUE(
      Eventually([&] { return ReadFile(out) == std::to_string(good) + "\n"; }));
}

TEST_F(LauncherCheck, FindsAnArgcThatEndsTheForkedChild) {
  REQUIRE_SANDBOX();
  constexpr int kTooLarge = 65'500;
  const std::string items = ItemsWithArgc("/bin/true", kTooLarge);
  EXPECT_NE(Run(items).output.find("[argc-too-large]"), std::string::npos);
  LauncherRun launcher;
  launcher.StartItems(items);
  const auto records = launcher.Await("is killed.");
  ASSERT_FALSE(records.empty());
  const std::string& message = records[0].message;
  const int status = std::stoi(message.substr(message.rfind(' ')));
  EXPECT_TRUE(WIFSIGNALED(status)) << message;
}

// The launcher's forked child dies, or the program never does.
TEST_F(LauncherCheck, FindsFaultsThatKeepAnItemFromStarting) {
  REQUIRE_SANDBOX();
  const std::string a = R"({"name": "a", "program": "/bin/sleep", "argc": 1,
                            "args": {"0": "1000"}})";
  const std::string b = R"({"name": "b", "program": "/bin/false"})";
  for (const std::string& text :
       {R"({"0": )" + a + R"(, "2": )" + b + "}",
        R"({"0": )" + a + R"(}, "1": )" + b + "}",
        R"({"0": )" + a + R"(, "01": )" + b + "}",
        R"({"0": )" + b + R"(, "0": )" + a + "}",
        R"({"0": )" + a + R"(, "1": {"program": "/bin/false"}})"}) {
    EXPECT_EQ(Run(text).status, 2) << text;
    LauncherRun launcher;
    launcher.StartItems(text);
    launcher.AwaitReady(1);
    EXPECT_EQ(ChildrenOf(launcher.Process()).size(), 1U) << text;
    for (const std::string& message : launcher.Messages()) {
      EXPECT_EQ(message.find("is killed"), std::string::npos) << message;
    }
    launcher.Stop();
  }
}

TEST_F(LauncherCheck, ReadsStandardInput) {
  const std::string file = directory_.Write("items.json", kOdd);
  const CommandResult result = RunCommand(
      {"/bin/sh", "-c", std::string(LAUNCHER_CHECK) + " - < " + file});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.output.find("(standard input):1:43: warning:"),
            std::string::npos);
}

TEST_F(LauncherCheck, RefusesPipesAndDevices) {
  const std::string fifo = directory_.Path() / "fifo";
  mkfifo(fifo.c_str(), 0600);
  for (const std::string& path : {fifo, std::string("/dev/zero")}) {
    const CommandResult result = RunCommand({LAUNCHER_CHECK, path});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.output.find("[not-regular]"), std::string::npos);
  }
}

TEST_F(LauncherCheck, SurvivesAnyNesting) {
  constexpr std::size_t kLevels = 100'000;
  const CommandResult result = Run(std::string(kLevels, '['));
  EXPECT_EQ(result.status, 2);
  EXPECT_NE(result.output.find("is nested too deeply [not-json]"),
            std::string::npos);
}

TEST_F(LauncherCheck, WritesTheCorrectedFile) {
  REQUIRE_SANDBOX();
  const CommandResult result = Run(
      R"([{"name": "a", "program": "/bin/sleep", "args": [1000]}])", {"--fix"});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.errors.find("corrected: item 0: set \"argc\" to 1\n"),
            std::string::npos);
  EXPECT_NE(result.errors.find("1 item, 0 errors, 0 warnings\n"),
            std::string::npos);
  LauncherRun launcher;
  launcher.StartItems(result.output);
  launcher.AwaitReady(1);
  EXPECT_TRUE(Eventually([&] {
    const auto children = ChildrenOf(launcher.Process());
    return !children.empty() &&
           ReadFile("/proc/" + std::to_string(children[0]) + "/cmdline") ==
               std::string("/bin/sleep\0001000\0", 16);
  }));
}

TEST_F(LauncherCheck, SaysWhatItCannotCorrect) {
  const CommandResult hopeless = Run("{", {"--fix"});
  EXPECT_EQ(hopeless.status, 2);
  EXPECT_EQ(hopeless.output, "");
  EXPECT_NE(hopeless.errors.find("not corrected: "), std::string::npos);
  const CommandResult unreadable =
      RunCommand({LAUNCHER_CHECK, "--fix", directory_.Path() / "none"});
  EXPECT_EQ(unreadable.status, 3);
  const CommandResult left =
      Run(R"({"0": {"name": "a", "argc": "x"}})", {"--fix"});
  EXPECT_EQ(left.status, 2);
  EXPECT_NE(left.errors.find("[argc-type]"), std::string::npos);
  EXPECT_EQ(Run(kGood, {"--fix", "--json"}).status, 3);
  EXPECT_EQ(Run(kOdd, {"--fix"}).output, kOdd);
}

}  // namespace
