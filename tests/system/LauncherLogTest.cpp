// The program launcher-log, on files and on the log of a real launcher.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "common/json/JsonObject.h"
#include "tests/support/Command.h"
#include "tests/support/Files.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TempDir.h"
#include "tools/text/Characters.h"

namespace {

namespace fs = std::filesystem;

std::string Line(const std::string& name, int status = 256) {
  return "2026-11-21T06:20:31.000000Z ERROR 1:2 [LAUNCHER  ] " + name +
         " 3 is killed. ret = 3, status = " + std::to_string(status) + "\n";
}

class LauncherLog : public testing::Test {
 protected:
  CommandResult Run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), LAUNCHER_LOG);
    return RunCommand(arguments);
  }

  TempDir directory_;
};

TEST_F(LauncherLog, ShowsATable) {
  const std::string log = directory_.Write("launcher.log", Line("a"));
  directory_.Write("launcher.1.log", Line("b"));
  const CommandResult result = Run({log});
  EXPECT_EQ(result.status, 0);
  EXPECT_LT(result.output.find("\nb  "), result.output.find("\na  "));
  EXPECT_EQ(result.errors, "");
}

TEST_F(LauncherLog, WritesJson) {
  const std::string log = directory_.Write("launcher.log", Line("a"));
  JsonObject report(Run({"--json", log}).output.c_str());
  EXPECT_EQ(static_cast<std::string>(report["items"][0]["name"]), "a");
}

TEST_F(LauncherLog, ShowsTheWantedItemsOnly) {
  const std::string log =
      directory_.Write("launcher.log", Line("a") + Line("b c") + Line("d"));
  JsonObject report(
      Run({"--json", "--item", "b c", "--item", "d", log}).output.c_str());
  EXPECT_EQ(report["items"].GetArraySize(), 2U);
}

TEST_F(LauncherLog, ShowsTheWantedTimeOnly) {
  const std::string log = directory_.Write("launcher.log", Line("a"));
  const auto items = [&](const std::string& since) {
    JsonObject report(Run({"--json", "--since", since, log}).output.c_str());
    return report["items"].GetArraySize();
  };
  EXPECT_EQ(items("2026-11-21T06:20:31"), 1U);
  EXPECT_EQ(items("2026-11-21T06:20:32"), 0U);
  EXPECT_EQ(Run({"--since", "soon", log}).status, 3);
}

TEST_F(LauncherLog, DrawsAPicture) {
  const std::string log = directory_.Write("launcher.log", Line("a"));
  const std::string picture = directory_.Path() / "a.svg";
  EXPECT_EQ(Run({"--plot", picture, log}).status, 0);
  EXPECT_TRUE(ReadFile(picture).starts_with("<svg "));
  EXPECT_EQ(Run({"--plot", directory_.Path() / "no/a.svg", log}).status, 3);
}

TEST_F(LauncherLog, TellsWrongUseByItsExitStatus) {
  const std::string log = directory_.Write("launcher.log", Line("a"));
  EXPECT_EQ(Run({directory_.Path() / "none"}).status, 3);
  EXPECT_NE(Run({directory_.Path() / "none"}).errors.find("none: No such file"),
            std::string::npos);
  EXPECT_EQ(Run({"--nonsense"}).status, 3);
  EXPECT_EQ(Run({"--follow", "--json", log}).status, 3);
  EXPECT_EQ(Run({"--follow", "--plot", "x", log}).status, 3);
  EXPECT_EQ(Run({"--help"}).status, 0);
  EXPECT_TRUE(Run({"--version"}).output.starts_with("launcher-log 1."));
}

// The program, followed by a test.
class Followed {
 public:
  Followed(const std::string& log, const std::string& output) {
    process_ = fork();
    if (process_ == 0) {
      freopen(output.c_str(), "w", stdout);
      execl(LAUNCHER_LOG, "launcher-log", "--follow", log.c_str(), nullptr);
      _exit(127);
    }
  }
  ~Followed() {
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
  }
  Followed(const Followed&) = delete;
  Followed& operator=(const Followed&) = delete;

 private:
  pid_t process_;
};

TEST_F(LauncherLog, FollowsWithALineForEachEvent) {
  const std::string log = directory_.Write("launcher.log", Line("old"));
  const std::string output = directory_.Path() / "output";
  const Followed followed(log, output);
  // Whatever is written before it has read the old lines counts as old.
  int number = 0;
  EXPECT_TRUE(Eventually([&] {
    std::ofstream(log, std::ios::app) << Line("new" + std::to_string(++number));
    return !ReadFile(output).empty();
  }));
  EXPECT_EQ(ReadFile(output).find("old"), std::string::npos);
  std::ofstream(log, std::ios::app) << Line("last", 9);
  EXPECT_TRUE(Eventually([&] {
    return ReadFile(output).find("last (process 3) ended: SIGKILL\n") !=
           std::string::npos;
  }));
}

// The last table that is whole.
std::string Screen(const std::string& output) {
  const std::size_t end = output.rfind("\x1b[J");
  const std::size_t start = output.rfind("\x1b[H", end);
  return end == std::string::npos ? "" : output.substr(start + 3, end - start);
}

class LauncherLogOnTerminal : public LauncherLog {
 protected:
  void Start(const std::vector<std::string>& options,
             const std::string& terminal = "xterm",
             winsize size = {24, 80, 0, 0}) {
    std::vector<std::string> words{LAUNCHER_LOG};
    words.insert(words.end(), options.begin(), options.end());
    words.push_back(log_);
    command_.emplace(
        words, std::map<std::string, std::string>{{"TERM", terminal}}, size);
  }

  void Append(const std::string& text) const {
    std::ofstream(log_, std::ios::app) << text;
  }

  bool Shows(const std::string& text) {
    return Eventually([&] {
      return Screen(command_->Output()).find(text) != std::string::npos;
    });
  }

  // Has a log read from a pipe for so long that its progress is shown.
  void ReadUntilProgressIsShown() {
    ASSERT_EQ(mkfifo(log_.c_str(), 0600), 0);
    pipe_ = open(log_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    Start({}, "xterm", {24, 12, 0, 0});
    const std::string line = Line("a");
    EXPECT_TRUE(Eventually([&] {
      [[maybe_unused]] const auto ignored =
          write(pipe_, line.data(), line.size());
      return command_->Output().find("reading: ") != std::string::npos;
    })) << command_->Output();
  }

  std::string log_ = directory_.Path() / "launcher.log";
  std::optional<TerminalCommand> command_;
  int pipe_ = -1;
};

TEST_F(LauncherLogOnTerminal, RenewsItsTable) {
  Append(Line("old"));
  Start({"--follow"});
  EXPECT_TRUE(Shows("\r\nold "));
  Append(Line("new"));
  EXPECT_TRUE(Shows("\r\nnew "));
  EXPECT_TRUE(Shows("\r\nold "));
}

TEST_F(LauncherLogOnTerminal, KeepsTheTableWithinTheTerminal) {
  for (int i = 0; i < 40; ++i) {
    Append(Line("item" + std::to_string(i)));
  }
  Start({"--follow"}, "xterm", {12, 30, 0, 0});
  EXPECT_TRUE(Shows("\r\nitem4 "));
  std::istringstream lines(Screen(command_->Output()));
  int count = 0;
  for (std::string line; std::getline(lines, line) && line[0] != '\x1b';) {
    EXPECT_EQ(DisplayWidth(line.substr(0, line.find('\r'))), 30U) << line;
    ++count;
  }
  EXPECT_EQ(count, 11);
  EXPECT_TRUE(Shows("lines more"));
  command_->Resize({60, 100, 0, 0});
  EXPECT_TRUE(Shows("\r\nitem39 "));
}

TEST_F(LauncherLogOnTerminal, LeavesTheCursorBelowTheTable) {
  Append(Line("a"));
  for (const int number : {SIGINT, SIGTERM}) {
    Start({"--follow"});
    EXPECT_TRUE(Shows("\r\na "));
    command_->Signal(number);
    EXPECT_EQ(command_->Wait(), 128 + number);
    EXPECT_TRUE(command_->Output().ends_with("\r\n\x1b[J"));
    EXPECT_EQ(command_->Output().find('?'), std::string::npos);
  }
}

TEST_F(LauncherLogOnTerminal, FollowsLineByLineWhereEscapesAreNotKnown) {
  Append(Line("old"));
  Start({"--follow"}, "dumb");
  EXPECT_TRUE(Eventually([&] {
    Append(Line("new"));
    return command_->Output().find("new (process 3) ended: exit 1\r\n") !=
           std::string::npos;
  }));
  EXPECT_EQ(command_->Output().find('\x1b'), std::string::npos);
}

TEST_F(LauncherLogOnTerminal, WipesItsProgressWhenItHasReadAll) {
  ReadUntilProgressIsShown();
  close(pipe_);
  EXPECT_EQ(command_->Wait(), 0);
  const std::string& output = command_->Output();
  const std::size_t wipe = output.rfind("\r\x1b[K");
  ASSERT_NE(wipe, std::string::npos);
  EXPECT_GT(wipe, output.rfind("reading: "));
  EXPECT_EQ(output.substr(wipe + 4, log_.size()), log_);
  // Nothing of it reaches the terminal's last column.
  for (std::size_t at = 0; (at = output.find("reading: ", at)) != output.npos;
       ++at) {
    EXPECT_EQ(output.find('\r', at) - at, 11U);
  }
}

TEST_F(LauncherLogOnTerminal, WipesItsProgressWhenItIsEnded) {
  for (const int number : {SIGINT, SIGTERM}) {
    ReadUntilProgressIsShown();
    command_->Signal(number);
    EXPECT_EQ(command_->Wait(), 128 + number);
    EXPECT_TRUE(command_->Output().ends_with("\r\x1b[K"));
    close(pipe_);
    fs::remove(log_);
  }
}

TEST_F(LauncherLog, ShowsNoProgressWithoutATerminal) {
  const std::string part = directory_.Write("part", Line("a"));
  const std::string script = "(cat " + part + "; sleep 2; cat " + part +
                             "; sleep 1; cat " + part +
                             ") | " LAUNCHER_LOG " /dev/stdin";
  const CommandResult result = RunCommand({"/bin/sh", "-c", script});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output.find('\x1b'), std::string::npos);
  EXPECT_NE(result.output.find(", 3 lines\n"), std::string::npos);
}

TEST_F(LauncherLog, ReadsALongLogInLittleMemory) {
  std::string megabyte;
  while (megabyte.size() < 1024 * 1024) {
    megabyte += Line("item " + std::to_string(megabyte.size() % 20));
  }
  constexpr int kMegabytes = 64;
  const std::string log = directory_.Path() / "launcher.log";
  std::ofstream file(log, std::ios::binary);
  for (int i = 0; i < kMegabytes; ++i) {
    file << megabyte;
  }
  file.close();
  ASSERT_EQ(Run({log, "--plot", directory_.Path() / "a.svg"}).status, 0);
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  constexpr long kMaxKilobytes = 40'000;
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_LT(usage.ru_maxrss, kMaxKilobytes);
#else
  EXPECT_GT(kMaxKilobytes, 0);
#endif
}

// The launcher's bundle with its own logger library and this program in it.
class LauncherLogBundle : public LauncherLog {
 protected:
  LauncherLogBundle() {
    launcher_.UseLibrary(LOGGER_LIBRARY);
    fs::create_symlink(LAUNCHER_LOG, Tool());
    launcher_.Directory().Write("home/Library/Application Support/Demo/log.ini",
                                "[LOG]\nLEVEL=DEBUG\n");
  }

  fs::path Tool() const {
    return launcher_.Executable().parent_path() / "launcher-log";
  }

  JsonObject Report() {
    const CommandResult result =
        RunCommand({Tool(), "--json"}, {{"HOME", launcher_.Home()}});
    return JsonObject(result.status == 0 ? result.output.c_str()
                                         : R"({"items": []})");
  }

  // The report's item of that name; an empty object when there is none.
  JsonObject Item(const std::string& name) {
    JsonObject report = Report();
    JsonObject items = report["items"];
    for (int i = 0; i < static_cast<int>(items.GetArraySize()); ++i) {
      if (static_cast<std::string>(items[i]["name"]) == name) {
        JsonObject copy = JsonObject::GetEmptyObject();
        copy.Insert("item", items[i]);
        return JsonObject(copy["item"].ToText().c_str());
      }
    }
    return JsonObject::GetEmptyObject();
  }

  LauncherRun launcher_;
};

TEST_F(LauncherLogBundle, FindsAndReadsTheLaunchersOwnLog) {
  REQUIRE_SANDBOX();
  launcher_.StartItems(
      R"({"0": {"name": "a\n is killed.", "program": "/bin/sh", "argc": 2,
                "args": {"0": "-c", "1": "exit 3"}},
          "1": {"name": "b", "program": "/bin/sleep", "argc": 1,
                "args": {"0": "600"}},
          "2": {"name": "chain", "program": "/no/such/program"}})");
  const auto number = [](JsonObject item, const char* key) {
    return item.HasObject(key) ? static_cast<int>(item[key]) : -1;
  };
  EXPECT_TRUE(Eventually([&] {
    JsonObject a = Item("a\n is killed.");
    return number(a, "ends") >= 5;
  }));
  JsonObject a = Item("a\n is killed.");
  EXPECT_EQ(number(a["last_end"], "code"), 3);
  EXPECT_GE(number(a, "starts"), number(a, "ends"));
  EXPECT_EQ(static_cast<std::string>(a["state"]), "looping");
  EXPECT_EQ(static_cast<std::string>(Item("b")["state"]), "running");
  EXPECT_TRUE(Eventually([&] {
    JsonObject chain = Item("chain");
    return number(chain, "chained_copies") >= 2;
  }));
  EXPECT_EQ(static_cast<int>(Report()["launcher_count"]), 1);
  launcher_.Stop();
  JsonObject b = Item("b");
  EXPECT_EQ(static_cast<std::string>(b["last_end"]["signal"]), "SIGKILL");
}

}  // namespace
