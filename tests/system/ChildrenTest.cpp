// The state that a child starts with, and how its end is logged.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "tests/support/Files.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = std::filesystem;

// Stops a shell in the state that it started with.
constexpr const char* kStopItself = "kill -STOP $$";

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    escaped += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
  }
  return "\"" + escaped + "\"";
}

// The item `name` that runs `script` in a shell, followed by `arguments`.
std::string Shell(const std::string& name, const std::string& script,
                  const std::vector<std::string>& arguments = {}) {
  std::string item = R"({"name": ")" + name +
                     R"(", "program": "/bin/sh", "argc": )" +
                     std::to_string(arguments.size() + 2) +
                     R"(, "args": {"0": "-c", "1": )" + Escaped(script);
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    item += ", \"" + std::to_string(i + 2) + "\": " + Escaped(arguments[i]);
  }
  return item + "}}";
}

class ChildrenTest : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_SANDBOX(); }

  // Starts the launcher on one item that stops itself, and returns its process.
  pid_t StartStopped(const std::vector<std::string>& arguments,
                     const std::function<void()>& prepare = {}) {
    run_.StartItems(ItemsFile({Shell("a", kStopItself, arguments)}), prepare);
    pid_t child = 0;
    EXPECT_TRUE(Eventually([&] {
      const std::vector<pid_t> children = ChildrenOf(run_.Process());
      child = children.size() == 1 ? children[0] : 0;
      return child != 0 &&
             ReadFile(File(child, "stat")).find(") T ") != std::string::npos;
    }));
    run_.AwaitReady(1);
    return child;
  }

  static fs::path File(pid_t process, const std::string& name) {
    return "/proc/" + std::to_string(process) + "/" + name;
  }

  void ExpectArguments(const std::vector<std::string>& arguments) {
    std::string expected = "/bin/sh";
    expected += '\0';
    for (const std::string& text :
         {std::string("-c"), std::string(kStopItself)}) {
      expected.append(text) += '\0';
    }
    for (const std::string& text : arguments) {
      expected.append(text) += '\0';
    }
    EXPECT_EQ(ReadFile(File(StartStopped(arguments), "cmdline")), expected);
  }

  // Starts the launcher with two descriptors above the standard ones, and
  // expects the item to have those and no others.
  void ExpectDescriptorsAsGiven() {
    const pid_t child = StartStopped({}, [] {
      for (int i = 3; i < 1024; ++i) {
        close(i);
      }
      dup2(0, 5);
      dup2(0, 900);
    });
    std::set<int> numbers;
    for (const auto& [number, target] : DescriptorsOf(child)) {
      numbers.insert(number);
    }
    EXPECT_EQ(numbers, (std::set<int>{5, 900}));
  }

  // Divides the numbers from 0 to `numbers` - 1, a multiple of eight, among
  // several items. `action` uses $n. Returns the status
  // logged for each number.
  std::vector<int> StatusesOf(int numbers, const std::string& action) {
    constexpr int kItems = 8;
    const int part = numbers / kItems;
    std::vector<std::string> items;
    for (int i = 0; i < kItems; ++i) {
      const std::string file = run_.Directory().Write(
          "next" + std::to_string(i), std::to_string(i * part));
      items.push_back(Shell("item" + std::to_string(i),
                            "n=$(cat " + file + "); echo $((n + 1)) > " + file +
                                "; [ $n -lt " + std::to_string((i + 1) * part) +
                                " ] || exec sleep 1000; " + action));
    }
    constexpr rlimit kNoCore{0, 0};
    run_.StartItems(ItemsFile(items),
                    [&] { setrlimit(RLIMIT_CORE, &kNoCore); });
    std::vector<int> statuses;
    for (int i = 0; i < kItems; ++i) {
      const std::string name = "item" + std::to_string(i);
      for (const LoggedEnd& end :
           run_.AwaitEnds(name, static_cast<std::size_t>(part))) {
        statuses.push_back(end.status);
      }
    }
    run_.AwaitReady(kItems);
    return statuses;
  }

  LauncherRun run_;
};

TEST_F(ChildrenTest, GetTheirArgumentsByteForByte) {
  ExpectArguments({"a b", " ", "'", "\"", "\\", "%s %n %", "",
                   "\xc3\xa9\xe2\x82\xac", "$HOME `id` *", "--", ""});
}

TEST_F(ChildrenTest, GetAnArgumentOfAHundredKilobytes) {
  ExpectArguments({std::string(100 * 1024, 'x')});
}

TEST_F(ChildrenTest, GetAThousandArguments) {
  std::vector<std::string> arguments;
  for (int i = 0; i < 1000; ++i) {
    arguments.push_back("argument " + std::to_string(i));
  }
  ExpectArguments(arguments);
}

TEST_F(ChildrenTest, GetTheEnvironmentByteForByte) {
  constexpr std::array<const char*, 6> kVariables{
      "QUOTED=a \"b\" '%s' \\ \xc3\xa9",
      "EMPTY=",
      "TWICE=1",
      "TWICE=2",
      "SPACE= and a\nline",
      nullptr};
  std::string expected;
  for (const char* const* variable = kVariables.data(); *variable != nullptr;
       ++variable) {
    expected.append(*variable) += '\0';
  }
  const pid_t child = StartStopped(
      {}, [&] { environ = const_cast<char**>(kVariables.data()); });
  EXPECT_EQ(ReadFile(File(run_.Process(), "environ")), expected);
  EXPECT_EQ(ReadFile(File(child, "environ")), expected);
}

TEST_F(ChildrenTest, StartInTheLaunchersWorkingDirectory) {
  const fs::path directory = run_.Root() / "work";
  fs::create_directory(directory);
  const pid_t child = StartStopped({}, [&] { fs::current_path(directory); });
  EXPECT_EQ(fs::read_symlink(File(child, "cwd")), directory);
}

TEST_F(ChildrenTest,
       HaveTheSignalMaskAndDispositionsThatTheLauncherStartedWith) {
  const pid_t child = StartStopped({}, [] {
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int number : {SIGUSR1, SIGCHLD, SIGWINCH}) {
      sigaddset(&blocked, number);
    }
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
    for (int number = 1; number <= 64; ++number) {
      signal(number, SIG_DFL);
    }
    for (const int number : {SIGPIPE, SIGHUP, SIGTERM}) {
      signal(number, SIG_IGN);
    }
  });
  EXPECT_EQ(StatusSignals(child, "SigBlk"),
            (std::set<int>{SIGUSR1, SIGCHLD, SIGWINCH}));
  EXPECT_EQ(StatusSignals(child, "SigIgn"), (std::set<int>{SIGPIPE, SIGHUP}))
      << "SIGTERM is default again: the launcher had a handler for it";
  std::set<int> caught = StatusSignals(run_.Process(), "SigCgt");
  std::erase_if(caught, [](int number) {
    return number > SIGSYS && number < SIGRTMIN;  // the C library's own
  });
  EXPECT_EQ(caught, std::set<int>{SIGTERM}) << "the launcher's handlers";
}

TEST_F(ChildrenTest, HaveTheDescriptorsThatTheLauncherLeft) {
  ExpectDescriptorsAsGiven();
}

TEST_F(ChildrenTest, DoNotInheritTheLog) {
  run_.UseLibrary(LOGGER_LIBRARY);
  ExpectDescriptorsAsGiven();
  EXPECT_TRUE(std::ranges::any_of(
      DescriptorsOf(run_.Process()),
      [](const auto& entry) { return entry.second.ends_with(".log"); }));
}

TEST_F(ChildrenTest, InheritAFileOpenedAsDescriptorZero) {
  run_.SetEnvironment("RECORDER", "leak");
  EXPECT_EQ(DescriptorsOf(StartStopped({})).at(0), "/dev/zero");
}

TEST_F(ChildrenTest, AreStartedAgainAfterEachEnd) {
  run_.StartItems(ItemsFile({Shell("tick", "exit 3")}));
  EXPECT_EQ(run_.AwaitEnds("tick", 3).at(2).status, 3 * 256);
  run_.ExpectStops();
}

TEST_F(ChildrenTest, HaveEveryExitCodeLoggedRaw) {
  std::vector<int> expected;
  for (int code = 0; code < 256; ++code) {
    expected.push_back(code * 256);
  }
  EXPECT_EQ(StatusesOf(256, "exit $n"), expected);
  EXPECT_EQ(WEXITSTATUS(run_.Stop()), 1);
}

// After a signal that does not terminate it, the shell exits with 77.
TEST_F(ChildrenTest, HaveEveryTerminatingSignalLoggedRaw) {
  constexpr int kSignals = 64;
  constexpr int kCoreFlag = 0x80;
  const std::set<int> harmless{SIGCHLD, SIGCONT, SIGSTOP, SIGTSTP,
                               SIGTTIN, SIGTTOU, SIGURG,  SIGWINCH};
  std::string skip;
  for (const int number : harmless) {
    skip += (skip.empty() ? "" : "|") + std::to_string(number);
  }
  const std::vector<int> statuses =
      StatusesOf(kSignals, "n=$((n + 1)); case $n in " + skip +
                               ") exit 77;; esac; kill -$n $$; exit 78");
  ASSERT_EQ(std::ssize(statuses), kSignals);
  for (int number = 1; number <= kSignals; ++number) {
    const int status = statuses[static_cast<std::size_t>(number - 1)];
    if (harmless.contains(number)) {
      EXPECT_EQ(status, 77 * 256);
    } else {
      EXPECT_EQ(status & ~kCoreFlag, number);
    }
  }
  EXPECT_EQ(WEXITSTATUS(run_.Stop()), 1);
}

}  // namespace
