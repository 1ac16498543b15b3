#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <tuple>
#include <type_traits>

#include "environment/Logging.h"
#include "launcher/ChildProc.h"
#include "launcher/Forks.h"
#include "launcher/Items.h"
#include "launcher/Messages.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/Sandbox.h"
#include "tests/support/StackGuard.h"
#include "tests/support/SystemCalls.h"
#include "tests/support/TempDir.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

// No header of macOS declares it.
extern "C" char** environ;

namespace {

using std::chrono::steady_clock;

constexpr const char* kPauseFormat = "a pause of %lld ns";
constexpr const char* kSleeper =
    R"("program": "/bin/sleep", "argc": 1, "args": {"0": "1000"})";

using Kills = std::vector<std::pair<pid_t, int>>;

std::string Item(const std::string& members) {
  return R"({"name": "tick", )" + members + "}";
}

// An item that runs `script` in a shell.
std::string Shell(const std::string& script) {
  return Item(R"("program": "/bin/sh", "argc": 2, "args": {"0": "-c", "1": ")" +
              script + R"("})");
}

// The fields, which an explicit instantiation may name.
template <auto... kFields>
struct Fields {
  friend auto FieldsOf(ChildProc& object) {
    return std::tie(object.*kFields...);
  }
};
auto FieldsOf(ChildProc& object);
template struct Fields<&ChildProc::pid, &ChildProc::running, &ChildProc::owner,
                       &ChildProc::name, &ChildProc::item, &ChildProc::thread>;

class ChildProcTest : public testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_SANDBOX();
    system_calls::Reset();
    system_calls::StartRecordingExec(directory_.Path() / "execs");
    logger = &log_;
  }

  void TearDown() override {
    child_.reset();
    logger = nullptr;
    system_calls::Reset();
    EndSession(getsid(0));
  }

  void Start(const std::string& item) {
    child_ = std::make_unique<ChildProc>("owner", JsonObject(item.c_str()));
  }

  std::vector<LogRecord> Records() const {
    return RecordingLog::Read(log_file_);
  }

  std::vector<LogRecord> Records(const std::string& format) const {
    std::vector<LogRecord> records = Records();
    std::erase_if(records, [&](const LogRecord& record) {
      return record.format != format;
    });
    return records;
  }

  // Waits until `count` messages of `format` are logged, and returns them.
  std::vector<LogRecord> Await(const std::string& format, std::size_t count) {
    EXPECT_TRUE(Eventually([&] { return Records(format).size() >= count; }));
    return Records(format);
  }

  // Waits for the first program to be started, and returns execv's arguments.
  std::vector<std::string> FirstExec() {
    EXPECT_TRUE(Eventually([] { return !system_calls::Execs().empty(); }));
    return system_calls::Execs().at(0);
  }

  // Waits for the first end of a child, and returns its wait status.
  int FirstStatus() {
    return EndIn(Await(kEndMessage, 1).at(0)).value().status;
  }

  // Waits until the supervision thread waits for its child.
  static void AwaitChild() {
    EXPECT_TRUE(Eventually([] { return ThreadsInWait(getpid()) == 1; }));
  }

  // Destroys the object, and returns how long that took.
  steady_clock::duration Destroy() {
    const auto start = steady_clock::now();
    child_.reset();
    return steady_clock::now() - start;
  }

  // Logs the pauses of the supervision thread and of forked children.
  static void LogPauses() {
    system_calls::OnNanosleep(
        [test = std::this_thread::get_id()](const timespec& time) {
          if (std::this_thread::get_id() != test) {
            const auto pause = std::chrono::seconds(time.tv_sec) +
                               std::chrono::nanoseconds(time.tv_nsec);
            __LOG__A(logger, LOGLEVEL_MESSAGE, kPauseFormat,
                     static_cast<long long>(pause.count()));
          }
        });
  }

  // Waits on the supervision thread until the test lets it continue.
  void AwaitGoingOn() const {
    EXPECT_TRUE(Eventually([this] { return may_go_on_.load(); }));
  }

  // Lets the supervision thread reach its fork and no further.
  void HoldFork() {
    system_calls::OnFork([this] {
      at_fork_ = true;
      AwaitGoingOn();
      return system_calls::RealFork();
    });
  }
  void AwaitHeldFork() {
    EXPECT_TRUE(Eventually([this] { return at_fork_.load(); }));
  }

  TempDir directory_;
  std::string log_file_ = directory_.Path() / "log";
  RecordingLog log_{log_file_};
  std::atomic<bool> at_fork_ = false;
  std::atomic<bool> may_go_on_ = false;
  std::atomic<int> forks_ = 0;
  std::unique_ptr<ChildProc> child_;
};

TEST(ChildProc, IsAPlainClassThatCannotBeCopied) {
  EXPECT_FALSE(std::is_polymorphic_v<ChildProc>);
  EXPECT_FALSE(std::is_copy_constructible_v<ChildProc>);
  EXPECT_FALSE(std::is_copy_assignable_v<ChildProc>);
  EXPECT_FALSE(std::is_move_constructible_v<ChildProc>);
}

// They are destroyed in the reverse order, so the thread's handle goes first.
TEST_F(ChildProcTest, DeclaresTheThreadLast) {
  HoldFork();
  Start(Item(kSleeper));
  std::apply(
      [](const auto&... fields) {
        const std::array<const void*, sizeof...(fields)> addresses{&fields...};
        EXPECT_TRUE(std::ranges::is_sorted(addresses, std::less<>()));
      },
      FieldsOf(*child_));
  may_go_on_ = true;
  AwaitChild();
}

TEST_F(ChildProcTest, KeepsTheOwnerAndAThreadThatCanBeJoined) {
  Start(Item(kSleeper));
  AwaitChild();
  EXPECT_EQ(std::get<2>(FieldsOf(*child_)), "owner");
  EXPECT_TRUE(std::get<5>(FieldsOf(*child_))->joinable());
  EXPECT_EQ(std::get<5>(FieldsOf(*child_)).use_count(), 1);
}

TEST_F(ChildProcTest, CanBeDestroyedWithoutItsThread) {
  Start(Item(kSleeper));
  AwaitChild();
  const auto thread = std::move(std::get<5>(FieldsOf(*child_)));
  child_->Stop();
  thread->join();
  child_.reset();
  EXPECT_EQ(system_calls::Kills().size(), 2U);
}

TEST_F(ChildProcTest, RunsItsThreadOnAStackOfItsOwnKind) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "ThreadSanitizer needs the default stacks";
#endif
#ifdef __linux__
  static std::atomic<std::size_t> size = 0;
  static std::atomic<bool> guarded = false;
  system_calls::OnFork([] {
    size = OwnStack().bytes;
    guarded = StackIsGuarded(system_calls::RealFork);
    return system_calls::RealFork();
  });
  Start(Item(kSleeper));
  EXPECT_TRUE(Eventually([] { return guarded.load(); }));
  AwaitChild();
  EXPECT_EQ(size, kSupervisionStackBytes);
#endif
}

// Messages.

TEST_F(ChildProcTest, LogsTheStartAtDebugLevel) {
  Start(Item(kSleeper));
  AwaitChild();
  const LogRecord start = Await(kStartMessage, 1).at(0);
  EXPECT_EQ(start.level, 1);
  EXPECT_EQ(start.message, Message(kStartMessage, "tick"));
  EXPECT_EQ(start.process, getpid());
}

TEST_F(ChildProcTest, LogsTheStartBeforeTheFork) {
  std::atomic<std::size_t> before = 0;
  system_calls::OnFork([&] {
    before = Records(kStartMessage).size();
    return system_calls::RealFork();
  });
  Start(Item(kSleeper));
  AwaitChild();
  EXPECT_EQ(before, 1U);
}

TEST_F(ChildProcTest, LogsAnyEndAsKilledWithTheRawStatus) {
  Start(Shell("exit 3"));
  const LogRecord end = Await(kEndMessage, 1).at(0);
  EXPECT_EQ(end.level, 8);
  EXPECT_EQ(end.process, getpid());
  EXPECT_EQ(end.message, Message(kEndMessage, "tick", EndIn(end).value().child,
                                 EndIn(end).value().child, 768));
  EXPECT_GT(EndIn(end).value().child, 0);
}

TEST_F(ChildProcTest, LogsARegularEndInTheSameWay) {
  Start(Shell("exit 0"));
  EXPECT_EQ(FirstStatus(), 0);
}

TEST_F(ChildProcTest, LogsADeathBySignalWithTheSignalsNumber) {
  Start(Shell("kill -15 $$"));
  EXPECT_EQ(FirstStatus(), 15);
}

TEST_F(ChildProcTest, DropsItsMessagesWithoutALogger) {
  logger = nullptr;
  const std::string mark = directory_.Path() / "mark";
  Start(Shell("echo >> " + mark));
  EXPECT_TRUE(Eventually([&] {
    std::error_code error;
    return std::filesystem::file_size(mark, error) >= 2 && !error;
  }));
  child_.reset();
  EXPECT_TRUE(Records().empty());
}

TEST_F(ChildProcTest, TakesTheNameAsText) {
  Start(R"({"name": 42, "program": "/bin/true"})");
  EXPECT_EQ(Await(kStartMessage, 1).at(0).message,
            Message(kStartMessage, "42"));
}

TEST_F(ChildProcTest, TakesANullNameAsEmpty) {
  Start(R"({"name": null, "program": "/bin/true"})");
  EXPECT_EQ(Await(kStartMessage, 1).at(0).message, Message(kStartMessage, ""));
}

TEST_F(ChildProcTest, TakesAMissingNameAsEmpty) {
  Start(R"({"program": "/bin/true"})");
  EXPECT_EQ(Await(kStartMessage, 1).at(0).message, Message(kStartMessage, ""));
}

// The cycle.

TEST_F(ChildProcTest, DoesNotStartWhenItIsStoppedBeforeItsThreadRuns) {
  system_calls::OnThreadStart([this] { AwaitGoingOn(); });
  system_calls::OnFork([this] {
    ++forks_;
    return -1;
  });
  Start(Item(kSleeper));
  child_->Stop();
  may_go_on_ = true;
  child_.reset();
  EXPECT_EQ(forks_, 0);
  EXPECT_TRUE(Records().empty());
}

TEST_F(ChildProcTest, StartsAgainNoSoonerThanFiftyMillisecondsAfterAnEnd) {
  Start(Shell("exit 0"));
  Await(kStartMessage, 6);
  child_.reset();
  std::optional<std::chrono::nanoseconds> end;
  int pauses = 0;
  for (const LogRecord& record : Records()) {
    if (record.format == kEndMessage) {
      end = record.time;
    } else if (end) {
      EXPECT_GE(record.time - *end, kRestartPause);
      ++pauses;
    }
  }
  EXPECT_GE(pauses, 5);
}

TEST_F(ChildProcTest, StartsAgainWithoutLimitOrGrowingDelay) {
  constexpr std::size_t kCycles = 40;
  LogPauses();
  Start(Shell("exit 1"));
  Await(kPauseFormat, kCycles);
  const auto records = Records();
  for (std::size_t i = 0; i < 3 * kCycles; i += 3) {
    EXPECT_EQ(records.at(i).format, kStartMessage);
    EXPECT_EQ(records.at(i + 1).format, kEndMessage);
    EXPECT_EQ(records.at(i + 2).message, "a pause of 50000000 ns");
  }
}

TEST_F(ChildProcTest, WaitsForItsOwnChildWithoutOptions) {
  constexpr const char* kWaitFormat = "waitpid(%d, %d)";
  system_calls::OnWaitpid([](pid_t process, int* status, int options) {
    __LOG__A(logger, LOGLEVEL_MESSAGE, kWaitFormat, process, options);
    return system_calls::RealWaitpid(process, status, options);
  });
  Start(Shell("exit 0"));
  const pid_t child = EndIn(Await(kEndMessage, 1).at(0)).value().child;
  EXPECT_EQ(Records(kWaitFormat).at(0).message,
            "waitpid(" + std::to_string(child) + ", 0)");
}

TEST_F(ChildProcTest, LogsAFailedWaitAndGoesOn) {
  system_calls::OnWaitpid([](pid_t process, int* status, int options) {
    system_calls::RealWaitpid(process, status, options);
    *status = 0;
    return -1;
  });
  Start(Shell("exit 1"));
  const LoggedEnd end = EndIn(Await(kEndMessage, 2).at(0)).value();
  EXPECT_EQ(end.ret, -1);
  EXPECT_EQ(end.status, 0);
}

TEST_F(ChildProcTest, KeepsItsOwnCopyOfTheItem) {
  auto document = std::make_unique<JsonObject>(
      R"({"0": {"name": "kept", "program": "/bin/true"}})");
  child_ = std::make_unique<ChildProc>("owner", (*document)["0"]);
  (*document)["0"]["program"] = std::string("/bin/false");
  document.reset();
  Await(kEndMessage, 2);
  for (const auto& exec : system_calls::Execs()) {
    EXPECT_EQ(exec.at(0), "/bin/true");
  }
  EXPECT_EQ(FirstStatus(), 0);
}

// The argument vector: its first entry here is the path given to execv.

using Vector = std::vector<std::string>;

TEST_F(ChildProcTest, PassesThePathAloneWithoutArgc) {
  Start(Item(R"("program": "/bin/true", "args": {"0": "unused"})"));
  EXPECT_EQ(FirstExec(), (Vector{"/bin/true", "/bin/true"}));
}

TEST_F(ChildProcTest, PassesThePathAloneWithArgcZero) {
  Start(Item(R"("program": "/bin/true", "argc": 0, "args": {"0": "unused"})"));
  EXPECT_EQ(FirstExec(), (Vector{"/bin/true", "/bin/true"}));
}

TEST_F(ChildProcTest, PassesAsManyArgumentsAsArgcSays) {
  Start(Item(R"("program": "/bin/true", "argc": 2,
                "args": {"0": "a b", "1": "\"%s\" é", "2": "unused"})"));
  EXPECT_EQ(FirstExec(), (Vector{"/bin/true", "/bin/true", "a b", "\"%s\" é"}));
}

TEST_F(ChildProcTest, ReadsNoArgumentBeyondArgc) {
  Start(Item(R"("program": "/bin/true", "argc": 1,
                "args": {"0": "a", "1": {}})"));
  EXPECT_EQ(FirstExec(), (Vector{"/bin/true", "/bin/true", "a"}));
}

TEST_F(ChildProcTest, PassesAnEmptyArgumentForAMissingOne) {
  Start(Item(R"("program": "/bin/true", "argc": 3, "args": {"0": "a",
                "2": "c"})"));
  EXPECT_EQ(FirstExec(), (Vector{"/bin/true", "/bin/true", "a", "", "c"}));
}

TEST_F(ChildProcTest, PassesEmptyArgumentsForMissingArgs) {
  Start(Item(R"("program": "/bin/true", "argc": 2)"));
  EXPECT_EQ(FirstExec(), (Vector{"/bin/true", "/bin/true", "", ""}));
}

TEST_F(ChildProcTest, PassesArgumentsAsText) {
  Start(Item(R"("program": "/bin/true", "argc": 4,
                "args": {"0": 1.5, "1": true, "2": null, "3": 7})"));
  EXPECT_EQ(FirstExec(),
            (Vector{"/bin/true", "/bin/true", "1.5", "true", "", "7"}));
}

TEST_F(ChildProcTest, PassesMoreThanTenArgumentsInOrder) {
  std::string args;
  Vector expected{"/bin/true", "/bin/true"};
  for (int i = 0; i < 12; ++i) {
    const std::string number = std::to_string(i);
    args.append(i == 0 ? "\"" : ", \"").append(number);
    args.append("\": \"v").append(number).append("\"");
    expected.push_back("v" + number);
  }
  Start(Item(R"("program": "/bin/true", "argc": 12, "args": {)" + args + "}"));
  EXPECT_EQ(FirstExec(), expected);
}

TEST_F(ChildProcTest, PassesAnEmptyVectorWithArgcMinusOne) {
  Start(Item(R"("program": "/bin/true", "argc": -1)"));
  EXPECT_EQ(FirstExec(), (Vector{"/bin/true"}));
}

TEST_F(ChildProcTest, TakesAnArgcBelowMinusOneAsMinusOne) {
  Start(Item(R"("program": "/bin/true", "argc": -2147483648)"));
  EXPECT_EQ(FirstExec(), (Vector{"/bin/true"}));
}

TEST_F(ChildProcTest, CutsArgcToThirtyTwoBits) {
  Start(Item(R"("program": "/bin/true", "argc": 4294967297,
                "args": {"0": "a", "1": "unused"})"));
  EXPECT_EQ(FirstExec(), (Vector{"/bin/true", "/bin/true", "a"}));
}

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
  Start(Item(R"("program": "true")"));
  AwaitChild();
  Await(kStartMessage, 2);
  EXPECT_TRUE(Records(kEndMessage).empty());
}

TEST_F(ChildProcTest, PassesTheEnvironmentOnUnchanged) {
  setenv("LAUNCHER_TEST_VARIABLE", "as it is = %s", 1);
  std::string expected;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    expected.append(*variable) += '\0';
  }
  Start(Item(kSleeper));
  EXPECT_TRUE(Eventually([&] {
    const std::vector<pid_t> children = ChildrenOf(getpid());
    if (children.empty()) {
      return false;
    }
    std::ifstream file("/proc/" + std::to_string(children[0]) + "/environ",
                       std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {}) == expected;
  }));
  AwaitChild();
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

TEST_F(ChildProcTest, AProgramThatIsNotAStringEndsTheWholeProcess) {
  for (const char* const program : {"{}", "[1]"}) {
    const pid_t forked = system_calls::RealFork();
    if (forked == 0) {
      const ChildProc fatal(
          "owner",
          JsonObject(Item(std::string("\"program\": ") + program).c_str()));
      pause();
    }
    int status = 0;
    ASSERT_EQ(waitpid(forked, &status, 0), forked);
    EXPECT_EQ(WTERMSIG(status), SIGABRT);
  }
}

TEST_F(ChildProcTest, ANameThatIsNotAStringThrowsBeforeAnythingStarts) {
  EXPECT_THROW(Start(R"({"name": {}, "program": "/bin/true"})"),
               Json::LogicError);
  EXPECT_THROW(Start(R"({"name": [], "program": "/bin/true"})"),
               Json::LogicError);
  EXPECT_TRUE(Records().empty());
}

TEST_F(ChildProcTest, AnItemOfTheWrongTypeThrows) {
  EXPECT_THROW(Start("5"), Json::LogicError);
}

// An empty path.

class ChildProcEmptyPathTest : public ChildProcTest,
                               public testing::WithParamInterface<std::string> {
};

TEST_P(ChildProcEmptyPathTest, TheChildLogsItAndEndsWithStatusZero) {
  Start(GetParam());
  const LogRecord empty = Await(kNoProgramMessage, 3).at(0);
  EXPECT_EQ(empty.level, 8);
  EXPECT_EQ(empty.message, Message(kNoProgramMessage, "tick"));
  EXPECT_NE(empty.process, getpid());
  EXPECT_EQ(Await(kEndMessage, 1).at(0).message,
            Message(kEndMessage, "tick", empty.process, empty.process, 0));
  EXPECT_TRUE(system_calls::Execs().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Items, ChildProcEmptyPathTest,
    testing::Values(R"({"name": "tick"})",
                    R"({"name": "tick", "program": null})",
                    R"({"name": "tick", "program": ""})",
                    R"({"name": "tick", "program": "\u0000/bin/true"})"));

// A program that cannot be executed.

TEST_F(ChildProcTest, AFailedExecGrowsAChainByOneEveryFiftyMilliseconds) {
  Start(Item(R"("program": "/nonexistent")"));
  AwaitChild();
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
    Start(Item("\"program\": \"" + program + "\""));
    AwaitChild();
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

TEST_F(ChildProcTest, EachLinkOfTheChainPausesBeforeItsStart) {
  constexpr std::size_t kLinks = 4;
  LogPauses();
  Start(Item(R"("program": "/nonexistent")"));
  AwaitChild();
  Await(kStartMessage, 1 + kLinks);
  const auto records = Records();
  for (std::size_t i = 1; i < 2 * kLinks; i += 2) {
    EXPECT_EQ(records.at(i).message, "a pause of 50000000 ns");
    EXPECT_EQ(records.at(i + 1).format, kStartMessage);
    EXPECT_EQ(records.at(i).process, records.at(i + 1).process);
  }
}

TEST_F(ChildProcTest, EachLinkOfTheChainWaitsForTheNext) {
  Start(Item(R"("program": "/nonexistent")"));
  AwaitChild();
  const auto starts = Await(kStartMessage, 4);
  // The third link is the second one's child: killing it is logged by the
  // second, which starts another in its place.
  kill(starts.at(2).process, SIGKILL);
  const LogRecord end = Await(kEndMessage, 1).at(0);
  EXPECT_EQ(end.process, starts.at(1).process);
  EXPECT_EQ(EndIn(end).value().child, starts.at(2).process);
}

TEST_F(ChildProcTest, TheTailOfTheChainSurvivesItsHead) {
  Start(Item(R"("program": "/nonexistent")"));
  AwaitChild();
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
  // Logs before each fork what the process that forks has allocated.
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

// Failures of the system.

TEST_F(ChildProcTest, ThrowsWhenTheSystemRefusesAThread) {
  system_calls::OnCreateThread([] { return EAGAIN; });
  try {
    Start(Item(kSleeper));
    FAIL() << "no exception";
  } catch (const std::system_error& error) {
    EXPECT_EQ(std::string(error.what()).find("thread constructor failed"), 0U)
        << error.what();
    EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
  }
  EXPECT_TRUE(system_calls::Kills().empty());
}

TEST_F(ChildProcTest, GivesUpAfterAFailedFork) {
  system_calls::OnFork([this] {
    ++forks_;
    errno = EAGAIN;
    return -1;
  });
  Start(Item(kSleeper));
  const LogRecord failure = Await(kForkFailedMessage, 1).at(0);
  EXPECT_EQ(failure.level, 8);
  EXPECT_EQ(failure.message, Message(kForkFailedMessage, "tick"));
  std::this_thread::sleep_for(4 * kRestartPause);
  EXPECT_EQ(forks_, 1);
  EXPECT_EQ(std::get<0>(FieldsOf(*child_)), -1);
  EXPECT_TRUE(Eventually([&] { return !std::get<1>(FieldsOf(*child_)); }));
}

TEST_F(ChildProcTest, DestroyingAfterAFailedForkSignalsEveryProcess) {
  system_calls::OnFork([] { return -1; });
  Start(Item(kSleeper));
  Await(kForkFailedMessage, 1);
  child_.reset();
  EXPECT_EQ(system_calls::Kills(), (Kills{{-1, SIGKILL}}));
}

TEST_F(ChildProcTest, DestroyingBeforeTheFirstForkSignalsTheProcessGroup) {
  HoldFork();
  Start(Shell("exit 0"));
  AwaitHeldFork();
  std::thread destroyer([&] { child_.reset(); });
  EXPECT_TRUE(Eventually([] { return !system_calls::Kills().empty(); }));
  EXPECT_EQ(system_calls::Kills(), (Kills{{0, SIGKILL}}));
  may_go_on_ = true;
  destroyer.join();
}

// Stopping.

TEST_F(ChildProcTest, DestroyingKillsTheChildAndWaitsForThePause) {
  Start(Item(kSleeper));
  AwaitChild();
  EXPECT_GE(Destroy(), kRestartPause);
  EXPECT_EQ(FirstStatus(), SIGKILL);
  EXPECT_EQ(Records(kStartMessage).size(), 1U);
  const pid_t child = EndIn(Records(kEndMessage).at(0)).value().child;
  EXPECT_EQ(system_calls::Kills(), (Kills{{child, SIGKILL}}));
}

TEST_F(ChildProcTest, DestroyingMissesAChildThatIsForkedAtThatMoment) {
  HoldFork();
  const std::string mark = directory_.Path() / "mark";
  Start(Shell("sleep 0.3; echo done > " + mark));
  AwaitHeldFork();
  std::thread destroyer([&] { child_.reset(); });
  EXPECT_TRUE(Eventually([] { return !system_calls::Kills().empty(); }));
  may_go_on_ = true;
  destroyer.join();
  EXPECT_TRUE(std::filesystem::exists(mark)) << "the child ended by itself";
  EXPECT_EQ(Records(kStartMessage).size(), 1U);
  EXPECT_EQ(FirstStatus(), 0);
}

TEST_F(ChildProcTest, StopKillsTheChildWithoutWaiting) {
  system_calls::OnWaitpid([this](pid_t process, int* status, int options) {
    const pid_t reaped = system_calls::RealWaitpid(process, status, options);
    AwaitGoingOn();
    return reaped;
  });
  Start(Item(kSleeper));
  AwaitChild();
  child_->Stop();
  EXPECT_TRUE(Records(kEndMessage).empty());
  may_go_on_ = true;
  EXPECT_EQ(FirstStatus(), SIGKILL);
  std::this_thread::sleep_for(2 * kRestartPause);
  EXPECT_EQ(Records(kStartMessage).size(), 1U);
}

// The thread sees a child that ends at once. It must not start another.
TEST_F(ChildProcTest, ClearsTheFlagBeforeItKills) {
  for (const bool destroys : {false, true}) {
    Start(Item(kSleeper));
    AwaitChild();
    const std::size_t starts = Records(kStartMessage).size();
    system_calls::OnKill(
        [] { std::this_thread::sleep_for(4 * kRestartPause); });
    destroys ? child_.reset() : child_->Stop();
    system_calls::OnKill({});
    EXPECT_EQ(Records(kStartMessage).size(), starts);
    child_.reset();
  }
}

TEST_F(ChildProcTest, DestroyingSignalsTheLastChildEvenWhenItIsGone) {
  Start(Item(kSleeper));
  AwaitChild();
  child_->Stop();
  Await(kEndMessage, 1);
  const pid_t child = system_calls::Kills().at(0).first;
  child_.reset();
  EXPECT_EQ(system_calls::Kills(), (Kills{{child, SIGKILL}, {child, SIGKILL}}));
}

// A forked child has none of the threads, and the stacks of most are unmapped
// there: there are more than the C library keeps for reuse.
TEST_F(ChildProcTest, DestroyingInAForkedChildSignalsWithoutWaiting) {
  constexpr int kMore = 20;
  Start(Item(kSleeper));
  std::vector<std::unique_ptr<ChildProc>> more;
  for (int i = 0; i < kMore; ++i) {
    more.push_back(std::make_unique<ChildProc>(
        "owner", JsonObject(Item(kSleeper).c_str())));
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
// has ended, and has no thread to join all the same.
TEST_F(ChildProcTest, JoinsNothingInAForkedChildThatHasTheLaunchersProcessId) {
  Start(Item(kSleeper));
  AwaitChild();
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

// Its signals go to its process group, also when an earlier child of the
// launcher had an id.
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

// An `exit` that a C library guards with a lock would wait for it for ever.
TEST_F(ChildProcTest, TheForkedChildOfAnExitingLauncherEndsWithoutAnExit) {
  const std::string file = directory_.Path() / "buffered";
  EXPECT_EQ(InForkedChild([&] {
              HoldFork();
              Start(R"({"name": "tick"})");
              AwaitHeldFork();
              // An exit would write this, here and in the forked child.
              std::fputs("text", std::fopen(file.c_str(), "w"));
              AnnounceExit();
              std::thread destroyer([&] { child_.reset(); });
              Eventually([] { return !system_calls::Kills().empty(); });
              may_go_on_ = true;
              destroyer.join();
              return 0;
            }),
            0);
  EXPECT_EQ(FirstStatus(), 0);
  EXPECT_EQ(std::filesystem::file_size(file), 0U);
}

TEST_F(ChildProcTest, DestroyingOnItsOwnThreadEndsTheProcess) {
  EXPECT_EQ(InForkedChild([this] {
              system_calls::OnFork([this] {
                AwaitGoingOn();
                child_.reset();
                return -1;
              });
              Start(Item(kSleeper));
              may_go_on_ = true;
              pause();
              return 0;
            }),
            -SIGABRT);
}

TEST_F(ChildProcTest, ObjectsSuperviseIndependently) {
  Start(Item(kSleeper));
  AwaitChild();
  ChildProc other("owner",
                  JsonObject(R"({"name": "other", "program": "/bin/true"})"));
  Await(kEndMessage, 3);
  for (const LogRecord& end : Records(kEndMessage)) {
    EXPECT_EQ(EndIn(end).value().name, "other");
  }
}

}  // namespace
