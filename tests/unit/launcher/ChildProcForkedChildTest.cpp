// The forked child's side of a ChildProc: its argument vector, its end, and the
// chain that it starts when its program cannot be executed.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <thread>

#include "launcher/Forks.h"
#include "launcher/Items.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/unit/launcher/ChildProcFixture.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

// No header of macOS declares it.
extern "C" char** environ;

namespace {

// The members of an item that runs /bin/true, and the resulting argument
// vector.
struct Arguments {
  const char* name;
  std::string members;
  Vector vector;
};

void PrintTo(const Arguments& arguments, std::ostream* out) {
  *out << arguments.members;
}

class ChildProcArgumentsTest : public ChildProcTest,
                               public testing::WithParamInterface<Arguments> {};

TEST_P(ChildProcArgumentsTest, FollowTheItem) {
  Start(Item(R"("program": "/bin/true")" + GetParam().members));
  Vector expected = GetParam().vector;
  expected.insert(expected.begin(), "/bin/true");
  EXPECT_EQ(FirstExec(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Items, ChildProcArgumentsTest,
    testing::Values(
        Arguments{"ThePathAloneWithoutArgc",
                  R"(, "args": {"0": "unused"})",
                  {"/bin/true"}},
        Arguments{"ThePathAloneWithArgcZero",
                  R"(, "argc": 0, "args": {"0": "unused"})",
                  {"/bin/true"}},
        Arguments{"AsManyAsArgcSays",
                  R"(, "argc": 2,
                     "args": {"0": "a b", "1": "\"%s\" é", "2": "unused"})",
                  {"/bin/true", "a b", "\"%s\" é"}},
        Arguments{"NoneReadBeyondArgc",
                  R"(, "argc": 1, "args": {"0": "a", "1": {}})",
                  {"/bin/true", "a"}},
        Arguments{"AnEmptyOneForAMissingOne",
                  R"(, "argc": 3, "args": {"0": "a", "2": "c"})",
                  {"/bin/true", "a", "", "c"}},
        Arguments{
            "EmptyOnesForMissingArgs", R"(, "argc": 2)", {"/bin/true", "", ""}},
        Arguments{"AsText",
                  R"(, "argc": 4,
                     "args": {"0": 1.5, "1": true, "2": null, "3": 7})",
                  {"/bin/true", "1.5", "true", "", "7"}},
        Arguments{"MoreThanTenInOrder",
                  R"(, "argc": 12, "args": {"0": "a", "1": "b", "2": "c",
                     "3": "d", "4": "e", "5": "f", "6": "g", "7": "h",
                     "8": "i", "9": "j", "10": "k", "11": "l"})",
                  {"/bin/true", "a", "b", "c", "d", "e", "f", "g", "h", "i",
                   "j", "k", "l"}},
        Arguments{"AnEmptyVectorWithArgcMinusOne", R"(, "argc": -1)", {}},
        Arguments{"AnEmptyVectorWithArgcBelowMinusOne",
                  R"(, "argc": -2147483648)",
                  {}},
        Arguments{"ArgcCutToThirtyTwoBits",
                  R"(, "argc": 4294967297, "args": {"0": "a", "1": "unused"})",
                  {"/bin/true", "a"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(ChildProcTest, PassesTheLargestArgcThatFitsTheStack) {
  Start(Item(R"("program": "/bin/true", "argc": )" +
             std::to_string(kLargestArgc)));
  EXPECT_EQ(std::ssize(FirstExec()), 2 + kLargestArgc);
  EXPECT_EQ(FirstStatus(), 0);
}

TEST_F(ChildProcTest, EndsTheChildAloneWhenTheVectorExceedsTheStack) {
  Start(Item(R"("program": "/bin/true", "argc": 2147483647)"));
  EXPECT_EQ(FirstStatus() & 0x7f, SIGSEGV);
  Await(kStartMessage, 2);
  EXPECT_TRUE(system_calls::Execs().empty());
}

TEST_F(ChildProcTest, ResolvesARelativePathAgainstTheWorkingDirectory) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path("/bin");
  Start(Item(R"("program": "./true")"));
  EXPECT_EQ(FirstStatus(), 0);
  std::filesystem::current_path(before);
}

TEST_F(ChildProcTest, DoesNotSearchForTheProgram) {
  StartAndAwait(Item(R"("program": "true")"));
  Await(kStartMessage, 2);
  EXPECT_TRUE(Records(kEndMessage).empty());
}

TEST_F(ChildProcTest, PassesTheEnvironmentOnUnchanged) {
  setenv("LAUNCHER_TEST_VARIABLE", "as it is = %s", 1);
  std::string expected;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    expected.append(*variable) += '\0';
  }
  StartSleeper();
  EXPECT_TRUE(Eventually([&] {
    const std::vector<pid_t> children = ChildrenOf(getpid());
    return !children.empty() &&
           ReadFile("/proc/" + std::to_string(children[0]) + "/environ") ==
               expected;
  }));
}

// A child that cannot build its vector ends abnormally, and is started again.

class ChildProcFaultTest : public ChildProcTest,
                           public testing::WithParamInterface<std::string> {};

TEST_P(ChildProcFaultTest, AbortsTheChildAndStartsItAgain) {
  Start(Item(GetParam()));
  EXPECT_EQ(FirstStatus() & 0x7f, SIGABRT);
  Await(kEndMessage, 2);
  EXPECT_TRUE(system_calls::Execs().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Items, ChildProcFaultTest,
    testing::Values(R"("program": "/bin/true", "argc": "1")",
                    R"("program": "/bin/true", "argc": {})",
                    R"("program": "/bin/true", "argc": [1])",
                    R"("program": "/bin/true", "argc": 1, "args": ["a"])",
                    R"("program": "/bin/true", "argc": 1, "args": "a")",
                    R"("program": "/bin/true", "argc": 1, "args": {"0": {}})",
                    R"("program": "/bin/true", "argc": 1, "args": {"0": []})"));

// An empty path.

class ChildProcEmptyPathTest : public ChildProcTest,
                               public testing::WithParamInterface<std::string> {
};

TEST_P(ChildProcEmptyPathTest, TheChildLogsItAndEndsWithStatusZero) {
  LogPauses();
  Start(GetParam());
  const LogRecord empty = Await(kNoProgramMessage, 3).at(0);
  EXPECT_EQ(empty.level, 8);
  EXPECT_EQ(empty.message, Message(kNoProgramMessage, "tick"));
  EXPECT_NE(empty.process, getpid());
  EXPECT_EQ(Await(kEndMessage, 1).at(0).message,
            Message(kEndMessage, "tick", empty.process, empty.process, 0));
  EXPECT_TRUE(system_calls::Execs().empty());
  for (const LogRecord& pause : Records(kPauseFormat)) {
    EXPECT_NE(pause.process, empty.process);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Items, ChildProcEmptyPathTest,
    testing::Values(R"({"name": "tick"})",
                    R"({"name": "tick", "program": null})",
                    R"({"name": "tick", "program": ""})",
                    R"({"name": "tick", "program": "\u0000/bin/true"})",
                    // These arguments would end the child by SIGABRT.
                    R"({"name": "tick", "argc": "1"})",
                    R"({"name": "tick", "argc": 1, "args": ["a"]})"));

// A program that cannot be executed.

TEST_F(ChildProcTest, AFailedExecGrowsAChainByOneEveryFiftyMilliseconds) {
  StartChain();
  Await(kStartMessage, 5);
  const auto records = Records();
  for (std::size_t i = 1; i < records.size(); ++i) {
    EXPECT_NE(records[i].process, records[i - 1].process);
    EXPECT_GE(records[i].time - records[i - 1].time, kRestartPause);
  }
  EXPECT_EQ(records.at(0).process, getpid());
  EXPECT_TRUE(std::ranges::all_of(records, [](const LogRecord& record) {
    return record.format == kStartMessage;
  }));
}

TEST_F(ChildProcTest, GrowsAChainHoweverTheExecFails) {
  const std::string forbidden = directory_.Write("forbidden", "#!/bin/sh\n");
  const std::string no_program = directory_.Write("text", "text");
  std::filesystem::permissions(forbidden, std::filesystem::perms::owner_read);
  std::filesystem::permissions(no_program, std::filesystem::perms::owner_all);
  const std::string directory = directory_.Path();
  for (const std::string& program : {forbidden, no_program, directory}) {
    const std::size_t before = Records(kStartMessage).size();
    StartAndAwait(Item("\"program\": \"" + program + "\""));
    const auto starts = Await(kStartMessage, before + 3);
    EXPECT_NE(starts.at(before + 1).process, starts.at(before).process);
    EXPECT_NE(starts.at(before + 2).process, starts.at(before + 1).process);
    child_.reset();
    EndSession(getsid(0));
  }
}

// A link is one of the launcher's children, which starts another when it ends.
TEST_F(ChildProcTest, ALinkOfTheChainWhoseForkFailsEndsWithStatusZero) {
  system_calls::OnExecv([] { return -1; });
  system_calls::OnFork([launcher = getpid()] {
    return getpid() == launcher ? system_calls::RealFork() : -1;
  });
  Start(Item(R"("program": "/bin/true")"));
  const pid_t link = Await(kForkFailedMessage, 1).at(0).process;
  EXPECT_NE(link, getpid());
  const LogRecord end = Await(kEndMessage, 1).at(0);
  EXPECT_EQ(end.message, Message(kEndMessage, "tick", link, link, 0));
  Await(kForkFailedMessage, 2);
}

// It inherits the cleared flag.
TEST_F(ChildProcTest, AChildForkedAfterAStopPausesOnceWhenItsExecFails) {
  LogPauses();
  system_calls::OnFork([this, launcher = getpid()] {
    if (getpid() != launcher) {
      return -1;
    }
    at_fork_ = true;
    AwaitGoingOn();
    return system_calls::RealFork();
  });
  Start(Item(R"("program": "/nonexistent")"));
  DestroyAtHeldFork();
  EXPECT_EQ(Records(kStartMessage).size(), 1U);
  EXPECT_EQ(Records(kEndMessage).size(), 1U);
  const LoggedEnd end = FirstEnd();
  EXPECT_EQ(end.status, 0);
  std::vector<LogRecord> pauses = Records(kPauseFormat);
  std::erase_if(pauses, [](const LogRecord& pause) {
    return pause.message != kFiftyMilliseconds;
  });
  ASSERT_EQ(pauses.size(), 2U);
  EXPECT_EQ(pauses[0].process, end.child);
  EXPECT_EQ(pauses[1].process, getpid());
}

TEST_F(ChildProcTest, EachLinkOfTheChainPausesBeforeItsStart) {
  constexpr std::size_t kLinks = 4;
  LogPauses();
  StartChain();
  Await(kStartMessage, 1 + kLinks);
  const auto records = Records();
  for (std::size_t i = 1; i < 2 * kLinks; i += 2) {
    EXPECT_EQ(records.at(i).message, kFiftyMilliseconds);
    EXPECT_EQ(records.at(i + 1).format, kStartMessage);
    EXPECT_EQ(records.at(i).process, records.at(i + 1).process);
  }
}

TEST_F(ChildProcTest, EachLinkOfTheChainWaitsForTheNext) {
  StartChain();
  const auto starts = Await(kStartMessage, 4);
  // The third link is the second one's child: killing it is logged by the
  // second, which starts another in its place.
  kill(starts.at(2).process, SIGKILL);
  const LogRecord end = Await(kEndMessage, 1).at(0);
  EXPECT_EQ(end.process, starts.at(1).process);
  EXPECT_EQ(EndIn(end).value().child, starts.at(2).process);
}

TEST_F(ChildProcTest, TheTailOfTheChainSurvivesItsHead) {
  StartChain();
  const auto starts = Await(kStartMessage, 4);
  child_.reset();
  const std::size_t now = Records(kStartMessage).size();
  EXPECT_GE(Await(kStartMessage, now + 2).size(), now + 2);
  EXPECT_EQ(::kill(starts.at(3).process, 0), 0);
}

#ifdef __GLIBC__

TEST_F(ChildProcTest, AFailedExecFreesEveryArgument) {
  constexpr std::size_t kBytes = 1'000'000;
  constexpr std::size_t kRest = 200'000;
  const std::string text(kBytes, 'x');
  system_calls::StartRecordingExec("");
  system_calls::OnExecv([] { return -1; });
  // Before each fork, logs the bytes that the forking process has allocated.
  system_calls::OnFork([] {
    const auto info = mallinfo2();
    __LOG__A(logger, LOGLEVEL_MESSAGE, "%zu bytes",
             info.uordblks + info.hblkhd);
    return system_calls::RealFork();
  });
  Start(Item(R"("program": "/x", "argc": 3, "args": {"0": ")" + text +
             R"(", "1": ")" + text + R"(", "2": ")" + text + "\"}"));
  AwaitChild();
  const auto records = Await("%zu bytes", 4);
  for (std::size_t i = 1; i < 4; ++i) {
    EXPECT_NE(records[i].process, records[i - 1].process);
    EXPECT_LT(std::stoul(records[i].message),
              std::stoul(records[i - 1].message) + kRest);
  }
}

#endif

// A forked child has none of the threads. There are more stacks than the C
// library keeps for reuse, so most are unmapped there.
TEST_F(ChildProcTest, DestroyingInAForkedChildSignalsWithoutWaiting) {
  constexpr int kMore = 20;
  Start(Item(kSleeper));
  std::vector<std::unique_ptr<ChildProc>> more;
  for (int i = 0; i < kMore; ++i) {
    more.push_back(Make(Item(kSleeper)));
  }
  EXPECT_TRUE(Eventually([] { return ThreadsInWait(getpid()) == 1 + kMore; }));
  const pid_t forked = system_calls::RealFork();
  if (forked == 0) {
    child_.reset();
    const bool killed = system_calls::Kills().size() == 1 &&
                        system_calls::Kills()[0].second == SIGKILL &&
                        system_calls::Kills()[0].first > 0;
    more.clear();
    _exit(killed && system_calls::Kills().size() == 1 + kMore ? 7 : 8);
  }
  int status = 0;
  EXPECT_TRUE(Eventually([&] {
    return system_calls::RealWaitpid(forked, &status, WNOHANG) == forked;
  }));
  EXPECT_EQ(WEXITSTATUS(status), 7);
  EXPECT_EQ(FirstStatus(), SIGKILL)
      << "the forked child's signal is sent for real";
  // Stopped between its start and its fork, an item would outlive the test.
  Await(kStartMessage, 2 * (1 + kMore));
  EXPECT_TRUE(Eventually([] { return ThreadsInWait(getpid()) == 1 + kMore; }));
}

// Process ids are reused: a chain's tail may get the id of the launcher, which
// has ended. It still has no thread to join.
TEST_F(ChildProcTest, JoinsNothingInAForkedChildThatHasTheLaunchersProcessId) {
  StartSleeper();
  EXPECT_EQ(InForkedChild([this, id = getpid()] {
              system_calls::OnGetpid([id] { return id; });
              system_calls::OnJoin([] { _exit(1); });
              child_.reset();
              return 0;
            }),
            0);
  Await(kStartMessage, 2);
  AwaitChild();
}

// So its signals go to its process group, even after earlier children.
TEST_F(ChildProcTest, TheForkedChildHasTheProcessIdZeroForItsItem) {
  system_calls::OnFork([this] {
    if (++forks_ == 2) {
      AwaitGoingOn();
    }
    return system_calls::RealFork();
  });
  system_calls::OnExecv([this, launcher = getpid()]() -> int {
    if (forks_ == 2) {
      child_->Stop();
      const auto kills = system_calls::Kills();
      _exit(kills == Kills{{0, SIGKILL}} && getpid() != launcher ? 3 : 4);
    }
    _exit(0);
  });
  Start(Item(R"("program": "/bin/true")"));
  may_go_on_ = true;  // Only now the second forked child can stop `child_`.
  const auto ends = Await(kEndMessage, 2);
  EXPECT_EQ(EndIn(ends.at(1)).value().status, 768);
}

// `exit` could wait forever for a lock that was held at the fork.
TEST_F(ChildProcTest, TheForkedChildOfAnExitingLauncherEndsWithoutAnExit) {
  const std::string file = directory_.Path() / "buffered";
  EXPECT_EQ(InForkedChild([&] {
              HoldFork();
              Start(R"({"name": "tick"})");
              // An exit would write this, here and in the forked child.
              std::fputs("text", std::fopen(file.c_str(), "w"));
              AnnounceExit();
              DestroyAtHeldFork();
              return 0;
            }),
            0);
  EXPECT_EQ(FirstStatus(), 0);
  EXPECT_EQ(std::filesystem::file_size(file), 0U);
}

}  // namespace
