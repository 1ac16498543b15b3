// The recipes of docs/recipes.md, each run by the real launcher. The items come
// from the document itself.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "launcher/Messages.h"
#include "tests/support/Command.h"
#include "tests/support/Files.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/ProcFs.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = std::filesystem;

// A section of the document: its first block of each language.
using Section = std::map<std::string, std::string>;

// The sections that hold a block of JSON, by their headings.
std::map<std::string, Section> ReadRecipes() {
  const std::string kFence = "```";
  const std::string kHeading = "## ";
  std::map<std::string, Section> sections;
  Section* section = nullptr;
  std::string* block = nullptr;
  std::istringstream document(ReadFile(RECIPES));
  for (std::string line; std::getline(document, line);) {
    if (line.starts_with(kHeading)) {
      section = &sections[line.substr(kHeading.size())];
    } else if (line.starts_with(kFence) && section != nullptr) {
      const std::string language = line.substr(kFence.size());
      block = language.empty() || section->contains(language)
                  ? nullptr
                  : &(*section)[language];
    } else if (block != nullptr) {
      *block += line + "\n";
    }
  }
  std::erase_if(sections, [](const auto& entry) {
    return !entry.second.contains("json");
  });
  return sections;
}

class RecipesTest : public testing::Test {
 protected:
  // Runs the items of the recipe `heading`, and waits until `children` run.
  void Start(const std::string& heading, int children) {
    run_.StartItems(ReadRecipes()[heading]["json"]);
    run_.AwaitReady(children);
  }

  // Waits until the launcher's only child has become `program`. In the middle
  // of execv it has the name already, but no environment yet.
  pid_t AwaitProgram(const std::string& program) {
    std::vector<pid_t> children;
    EXPECT_TRUE(Eventually([&] {
      children = ChildrenOf(run_.Process());
      return children.size() == 1 &&
             StatusField(children[0], "Name") == program &&
             !ReadFile(Of(children[0], "environ")).empty();
    })) << program;
    return children.empty() ? 0 : children[0];
  }

  static fs::path Of(pid_t process, const std::string& file) {
    return fs::path("/proc") / std::to_string(process) / file;
  }

  // Whether the environment of `process` holds `variable`, "NAME=value".
  static bool HasVariable(pid_t process, const std::string& variable) {
    const std::string environment = '\0' + ReadFile(Of(process, "environ"));
    return environment.find('\0' + variable + '\0') != std::string::npos;
  }

  LauncherRun run_;
};

// The recipe with a script, around the program "server".
class GracefulTest : public RecipesTest {
 protected:
  void Start(const std::string& server) {
    const fs::path file = run_.Directory().Write("home/server", server);
    fs::permissions(file, fs::perms::owner_all);
    Section recipe = ReadRecipes()["Clean-up at the stop"];
    const CommandResult script = RunCommand(
        {"/bin/sh", "-eu", "-c", recipe["sh"]}, {{"HOME", run_.Home()}});
    EXPECT_EQ(script.status, 0) << script.errors;
    run_.StartItems(recipe["json"]);
  }

  // The recipe's processes do not outlive the launcher for long.
  void StopAll() {
    run_.Stop();
    EXPECT_TRUE(Eventually([&] { return SessionOf(run_.Process()).empty(); }));
  }
};

// Test names are the headings in camel case, without blanks and hyphens.
TEST_F(RecipesTest, EveryRecipeHasATest) {
  std::set<std::string> tests;
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  for (int i = 0; i < all.total_test_suite_count(); ++i) {
    const testing::TestSuite& suite = *all.GetTestSuite(i);
    for (int j = 0; j < suite.total_test_count(); ++j) {
      tests.insert(suite.GetTestInfo(j)->name());
    }
  }
  EXPECT_FALSE(ReadRecipes().empty());
  for (const auto& [heading, section] : ReadRecipes()) {
    std::string name;
    bool capital = true;
    for (const char character : heading) {
      const bool skipped = character == ' ' || character == '-';
      if (!skipped) {
        name += capital && character >= 'a' && character <= 'z'
                    ? static_cast<char>(character - 'a' + 'A')
                    : character;
      }
      capital = skipped;
    }
    EXPECT_TRUE(tests.contains(name)) << heading << ": no test " << name;
  }
}

TEST_F(RecipesTest, Environment) {
  REQUIRE_SANDBOX();
  Start("Environment", 1);
  const pid_t program = AwaitProgram("sleep");
  EXPECT_TRUE(HasVariable(program, "MODE=production"));
  EXPECT_TRUE(HasVariable(program, "TZ=UTC"));
  EXPECT_TRUE(HasVariable(program, "HOME=" + run_.Home().string()));
}

TEST_F(RecipesTest, WorkingDirectory) {
  REQUIRE_SANDBOX();
  Start("Working directory", 1);
  EXPECT_EQ(fs::read_symlink(Of(AwaitProgram("sleep"), "cwd")), "/usr");
}

TEST_F(RecipesTest, PATHLookUp) {
  REQUIRE_SANDBOX();
  run_.SetEnvironment("PATH", "/nowhere");
  Start("PATH look-up", 1);
  EXPECT_TRUE(
      HasVariable(AwaitProgram("sleep"), "PATH=/usr/local/bin:/usr/bin:/bin"));
}

TEST_F(RecipesTest, OutputToAFile) {
  REQUIRE_SANDBOX();
  Start("Output to a file", 1);
  const pid_t program = AwaitProgram("tail");
  const fs::path file = run_.Home() / "worker.log";
  EXPECT_TRUE(Eventually([&] { return !ReadFile(file).empty(); }));
  std::map<int, std::string> descriptors = DescriptorsOf(program);
  EXPECT_EQ(descriptors[0], "/dev/null");
  EXPECT_EQ(descriptors[1], file);
  EXPECT_EQ(descriptors[2], file);
}

TEST_F(RecipesTest, SlowRestarts) {
  REQUIRE_SANDBOX();
  Start("Slow restarts", 1);
  std::vector<LogRecord> ends;
  EXPECT_TRUE(Eventually([&] {
    ends = run_.Records();
    std::erase_if(ends, [](const LogRecord& record) {
      return record.format != kEndMessage;
    });
    return ends.size() >= 2;
  }));
  EXPECT_GE(ends.at(1).time - ends.at(0).time, std::chrono::seconds(2));
}

TEST_F(RecipesTest, Limits) {
  REQUIRE_SANDBOX();
  Start("Limits", 1);
  const pid_t program = AwaitProgram("sleep");
  rlimit files{};
  rlimit core{};
  prlimit(program, RLIMIT_NOFILE, nullptr, &files);
  prlimit(program, RLIMIT_CORE, nullptr, &core);
  EXPECT_EQ(files.rlim_cur, 64U);
  EXPECT_EQ(files.rlim_max, 64U);
  EXPECT_EQ(core.rlim_max, 0U);
}

TEST_F(RecipesTest, Priority) {
  REQUIRE_SANDBOX();
  Start("Priority", 1);
  constexpr int kLowest = 19;
  const auto nice = [](pid_t process) {
    return getpriority(PRIO_PROCESS, static_cast<id_t>(process));
  };
  EXPECT_EQ(nice(AwaitProgram("sleep")),
            std::min(nice(run_.Process()) + 10, kLowest));
}

TEST_F(RecipesTest, CleanUpAtTheNextStart) {
  REQUIRE_SANDBOX();
  const fs::path file = run_.Directory().Write("home/worker.lock", "left over");
  Start("Clean-up at the next start", 1);
  AwaitProgram("sleep");
  EXPECT_FALSE(fs::exists(file));
}

TEST_F(GracefulTest, CleanUpAtTheStop) {
  REQUIRE_SANDBOX();
  Start(
      "#!/bin/sh\n"
      "trap 'echo \"$1\" >~/saved; exit' TERM\n"
      "echo up >~/up\n"
      "while :; do sleep 0.1; done\n");
  EXPECT_TRUE(Eventually([&] { return fs::exists(run_.Home() / "up"); }));
  // The server and the watcher, which the script starts last.
  const pid_t script = ChildrenOf(run_.Process()).at(0);
  EXPECT_TRUE(Eventually([&] { return ChildrenOf(script).size() == 2; }));
  StopAll();
  EXPECT_EQ(ReadFile(run_.Home() / "saved"), "--quiet\n");
}

TEST_F(GracefulTest, KeepsTheExitStatus) {
  REQUIRE_SANDBOX();
  Start("#!/bin/sh\nexit 3\n");
  EXPECT_TRUE(Eventually([&] {
    return std::ranges::count_if(run_.Records(), [](const LogRecord& record) {
             return record.format == kEndMessage &&
                    record.message.ends_with(" 768");
           }) >= 2;
  }));
  StopAll();
}

TEST_F(RecipesTest, SeveralInstances) {
  REQUIRE_SANDBOX();
  Start("Several instances", 2);
  const auto command_line = [](const std::string& seconds) {
    return "/bin/sleep" + ('\0' + seconds) + '\0';
  };
  const std::set<std::string> expected{command_line("3600"),
                                       command_line("3601")};
  EXPECT_TRUE(Eventually([&] {
    std::set<std::string> instances;
    for (const pid_t child : ChildrenOf(run_.Process())) {
      instances.insert(ReadFile(Of(child, "cmdline")));
    }
    return instances == expected;
  }));
}

}  // namespace
