// The program launcher-log, on files and on the log of a real launcher. Process
// 1, the launcher of these files, always exists.

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
#include "common/util/StringHelpers.h"
#include "launcher/Messages.h"
#include "tests/support/Command.h"
#include "tests/support/Files.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TempDir.h"
#include "tools/text/Characters.h"
#include "tools/text/Times.h"

namespace {

namespace fs = std::filesystem;

std::string Line(const std::string& name, int status = 256) {
  return "2026-11-21T06:20:31.000000Z ERROR 1:2 " +
         string_format(kEndMessage, name.c_str(), 3, 3, status) + "\n";
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

TEST_F(LauncherLog, ShowsOnlyTheSelectedItems) {
  const std::string log =
      directory_.Write("launcher.log", Line("a") + Line("b c") + Line("d"));
  JsonObject report(
      Run({"--json", "--item", "b c", "--item", "d", log}).output.c_str());
  EXPECT_EQ(report["items"].GetArraySize(), 2U);
}

TEST_F(LauncherLog, ShowsOnlyTheSelectedTime) {
  const std::string log = directory_.Write("launcher.log", Line("a"));
  const auto lines = [&](const std::string& since) {
    JsonObject report(Run({"--json", "--since", since, log}).output.c_str());
    return static_cast<int>(report["lines"]);
  };
  EXPECT_EQ(lines("2026-11-21T06:20:31"), 1);
  EXPECT_EQ(lines("2026-11-21T06:20:31.000001Z"), 0);
  EXPECT_EQ(Run({"--since", "soon", log}).status, 3);
}

TEST_F(LauncherLog, DrawsAPicture) {
  const std::string log = directory_.Write("launcher.log", Line("a"));
  const std::string picture = directory_.Path() / "a.svg";
  EXPECT_EQ(Run({"--plot", picture, log}).status, 0);
  EXPECT_TRUE(ReadFile(picture).starts_with("<svg "));
  EXPECT_EQ(Run({"--plot", directory_.Path() / "no/a.svg", log}).status, 3);
}

TEST_F(LauncherLog, DrawsTheEndsApartInALogThatBeginsWithAnEnd) {
  const std::string log = directory_.Write("launcher.log", Line("a"));
  for (const char* const time : {"06:20:32", "06:20:33", "06:20:34"}) {
    std::ofstream(log, std::ios::app)
        << Line("a").replace(sizeof("2026-11-21T") - 1, 8, time);
  }
  const std::string picture = directory_.Path() / "a.svg";
  EXPECT_EQ(Run({"--plot", picture, log}).status, 0);
  const std::string svg = ReadFile(picture);
  std::size_t marks = 0;
  for (std::size_t at = 0; (at = svg.find("class=\"end\"", at)) != svg.npos;
       ++at) {
    ++marks;
  }
  EXPECT_EQ(marks, 4U);
}

TEST_F(LauncherLog, EndsWithThreeWhenUsedWrongly) {
  const std::string log = directory_.Write("launcher.log", Line("a"));
  EXPECT_EQ(Run({directory_.Path() / "none"}).status, 3);
  EXPECT_NE(Run({directory_.Path() / "none"}).errors.find("none: No such file"),
            std::string::npos);
  EXPECT_EQ(Run({"--nonsense"}).status, 3);
  EXPECT_EQ(Run({"--follow", "--json", log}).status, 3);
  EXPECT_EQ(Run({"--follow", "--plot", "x", log}).status, 3);
  EXPECT_EQ(Run({"--follow", "--alert", log}).status, 3);
  EXPECT_EQ(Run({"--events", "--alert", log}).status, 3);
  EXPECT_EQ(Run({"--events", "--json", log}).status, 3);
  EXPECT_EQ(Run({"--help"}).status, 0);
  EXPECT_TRUE(Run({"--version"}).output.starts_with("launcher-log 1."));
}

// The program, followed by a test.
class Followed {
 public:
  Followed(const std::string& log, const std::string& output) {
    process_ = fork();
    if (process_ == 0) {
      if (freopen(output.c_str(), "w", stdout) != nullptr) {
        execl(LAUNCHER_LOG, "launcher-log", "--follow", log.c_str(), nullptr);
      }
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
  // Lines written before it has read the old ones also count as old.
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

// The last complete table.
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

  std::string log_ = directory_.Path() / "launcher.log";
  std::optional<TerminalCommand> command_;
};

TEST_F(LauncherLogOnTerminal, RefreshesItsTable) {
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
  EXPECT_TRUE(Shows("\r\nitem3 "));
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

TEST_F(LauncherLogOnTerminal, FollowsLineByLineOnATerminalWithoutEscapes) {
  Append(Line("old"));
  Start({"--follow"}, "dumb");
  EXPECT_TRUE(Eventually([&] {
    Append(Line("new"));
    return command_->Output().find("new (process 3) ended: exit 1\r\n") !=
           std::string::npos;
  }));
  EXPECT_EQ(command_->Output().find('\x1b'), std::string::npos);
}

TEST_F(LauncherLogOnTerminal, FitsTheTerminal) {
  const std::string name(60, 'n');
  for (const int status : {0, 256, 512, 9, 11, 15}) {
    Append(Line(name, status));
  }
  for (const unsigned short columns : {std::uint16_t{80}, std::uint16_t{120}}) {
    Start({}, "xterm", {24, columns, 0, 0});
    EXPECT_EQ(command_->Wait(), 0);
    std::istringstream lines(command_->Output());
    std::string line;
    while (std::getline(lines, line) && !line.starts_with("n")) {
    }
    EXPECT_EQ(DisplayWidth(line.substr(0, line.find('\r'))), columns) << line;
  }
  Start({}, "xterm", {24, 200, 0, 0});
  EXPECT_EQ(command_->Wait(), 0);
  EXPECT_NE(command_->Output().find("\n" + name + " "), std::string::npos);
}

TEST_F(LauncherLogOnTerminal, ShowsThatALogToFollowDoesNotExistYet) {
  Start({"--follow"});
  EXPECT_TRUE(Shows(log_ + ": does not exist yet"));
  Append(Line("new"));
  EXPECT_TRUE(Shows("\r\nnew "));
}

TEST_F(LauncherLogOnTerminal, SaysWithoutATableThatALogDoesNotExistYet) {
  Start({"--follow"}, "dumb");
  EXPECT_TRUE(Eventually([&] {
    return command_->Output() ==
           "launcher-log: " + log_ + ": does not exist yet\r\n";
  }));
}

TEST_F(LauncherLogOnTerminal, FollowsEventsFromTheStart) {
  Append(Line("old"));
  Start({"--follow", "--events"});
  EXPECT_TRUE(Eventually([&] {
    return command_->Output().find("old (process 3) ended") !=
           std::string::npos;
  }));
  Append(Line("new"));
  EXPECT_TRUE(Eventually([&] {
    return command_->Output().find("new (process 3) ended") !=
           std::string::npos;
  }));
}

TEST_F(LauncherLog, ReadsAPipe) {
  const std::string part = directory_.Write("part", Line("a"));
  const CommandResult result = RunCommand(
      {"/bin/sh", "-c",
       "cat " + part + " " + part + " | " LAUNCHER_LOG " /dev/stdin"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output.find('\x1b'), std::string::npos);
  EXPECT_NE(result.output.find(", lines: 2\n"), std::string::npos);
}

TEST_F(LauncherLog, ListsEvents) {
  const std::string log =
      directory_.Write("launcher.log", Line("a") + Line("b c", 9));
  EXPECT_EQ(Run({"--events", log}).output,
            "2026-11-21T06:20:31Z a (process 3) ended: exit 1\n"
            "2026-11-21T06:20:31Z b c (process 3) ended: SIGKILL\n");
  EXPECT_EQ(Run({"--events", "--item", "a", log}).output,
            "2026-11-21T06:20:31Z a (process 3) ended: exit 1\n");
  EXPECT_EQ(Run({"--events", "--since", "2026-11-22", log}).output, "");
}

TEST_F(LauncherLog, EndsWithOneForTrouble) {
  const std::string fine = directory_.Write("fine.log", Line("a"));
  EXPECT_EQ(Run({"--alert", fine}).status, 0);
  EXPECT_EQ(Run({"--alert", fine}).output, "");
  const std::string log =
      directory_.Write("launcher.log", Line("a") + Line("stopped", 9));
  EXPECT_EQ(Run({log}).status, 0);
  const CommandResult alert = Run({"--alert", log});
  EXPECT_EQ(alert.status, 1);
  EXPECT_EQ(alert.output, "silent (ended, no restart seen): stopped\n");
  const CommandResult json = Run({"--alert", "--json", log});
  EXPECT_EQ(json.status, 1);
  EXPECT_TRUE(json.output.starts_with("{"));
}

TEST_F(LauncherLog, SaysThatTheLauncherIsGone) {
  constexpr const char* kNoProcess =
      "2026-11-21T06:20:31.000000Z ERROR "
      "2147483647:2 ";
  const std::string log = directory_.Write(
      "launcher.log",
      kNoProcess + string_format(kEndMessage, "a", 3, 3, 256) + "\n");
  const std::string output = Run({log}).output;
  EXPECT_NE(output.find("process 2147483647, no longer there\n"),
            std::string::npos);
  EXPECT_NE(output.find("  gone   exit 1\n"), std::string::npos) << output;
}

TEST_F(LauncherLog, KeepsHealthyItemsWithSince) {
  const std::string log = directory_.Write("launcher.log", Line("a"));
  const std::string output = Run({"--since", "2026-11-21T07:00", log}).output;
  EXPECT_NE(output.find("\na  "), std::string::npos);
  EXPECT_NE(output.find("lines: 0; "), std::string::npos);
}

TEST_F(LauncherLog, DropsAFragmentAndKeepsTheLineAfterIt) {
  const std::string log =
      directory_.Write("launcher.log", "2026-" + Line("whole") + "junk\n");
  const std::string output = Run({log}).output;
  EXPECT_NE(output.find("\nwhole  "), std::string::npos);
  EXPECT_NE(output.find("\nunrecognised lines: 2\n"), std::string::npos);
}

TEST_F(LauncherLog, SaysWhatIsWrongWithItsInput) {
  const std::string log = directory_.Write("launcher.log", Line("a"));
  const auto error_of = [&](const std::vector<std::string>& arguments) {
    const CommandResult result = Run(arguments);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "");
    return result.errors;
  };
  EXPECT_EQ(error_of({"--item", "a", "--item", "b", log}),
            "launcher-log: --item: the log does not mention b\n");
  const std::string text = directory_.Write("text", "no\nlog\n");
  EXPECT_EQ(error_of({text}),
            "launcher-log: " + text +
                ": not a log: no line has the layout of a log line\n");
  const std::string gzip = directory_.Write("launcher.log.gz", "\x1f\x8b\x08");
  EXPECT_NE(error_of({gzip}).find("gunzip -c"), std::string::npos);
  directory_.Write("other.log", Line("a"));
  fs::create_directory(directory_.Path() / "other.1.log");
  EXPECT_EQ(error_of({directory_.Path() / "other.log"}),
            "launcher-log: " + (directory_.Path() / "other.1.log").string() +
                ": Is a directory\n");
  EXPECT_EQ(error_of({"--since", "25:00", log}),
            std::string("launcher-log: --since: not a time: 25:00\nwrite ") +
                kSinceForms + "\n");
}

TEST_F(LauncherLog, ReadsAnEmptyLog) {
  const CommandResult result = Run({directory_.Write("launcher.log", "")});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.output.find("lines: 0; above level DEBUG"),
            std::string::npos);
}

TEST_F(LauncherLog, ReadsALongLogOfManyItemsInLittleMemory) {
  std::string megabyte;
  while (megabyte.size() < 1024 * 1024) {
    megabyte += Line("item " + std::to_string(megabyte.size() % 20));
  }
  constexpr int kMegabytes = 64;
  constexpr int kItems = 5000;
  const std::string log = directory_.Path() / "launcher.log";
  std::ofstream file(log, std::ios::binary);
  for (int i = 0; i < kItems; ++i) {
    file << Line("one of many " + std::to_string(i));
  }
  for (int i = 0; i < kMegabytes; ++i) {
    file << megabyte;
  }
  file.close();
  ASSERT_EQ(Run({log, "--plot", directory_.Path() / "a.svg"}).status, 0);
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  constexpr long kMaxKilobytes = 40'000;
  EXPECT_LT(usage.ru_maxrss, kMaxKilobytes);
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
  const auto becomes = [&](const std::string& name, const std::string& state) {
    return Eventually([&] {
      JsonObject item = Item(name);
      return item.HasObject("state") &&
             static_cast<std::string>(item["state"]) == state;
    });
  };
  EXPECT_TRUE(becomes("a\n is killed.", "looping"));
  EXPECT_TRUE(becomes("b", "running"));
  JsonObject a = Item("a\n is killed.");
  EXPECT_EQ(number(a["last_end"], "code"), 3);
  EXPECT_GE(number(a, "starts"), number(a, "ends"));
  EXPECT_TRUE(Eventually([&] {
    JsonObject chain = Item("chain");
    return number(chain, "chained_starts") >= 2;
  }));
  EXPECT_EQ(static_cast<int>(Report()["launcher_count"]), 1);
  launcher_.Stop();
  JsonObject b = Item("b");
  EXPECT_EQ(static_cast<std::string>(b["last_end"]["signal"]), "SIGKILL");
}

}  // namespace
