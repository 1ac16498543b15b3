#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string_view>
#include <system_error>
#include <thread>
#include <type_traits>

#include "launcher/Items.h"
#include "tests/support/ChildProcFields.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/StackGuard.h"
#include "tests/unit/launcher/ChildProcFixture.h"

#ifdef __linux__
#include <sys/syscall.h>
#endif

namespace {

using std::chrono::steady_clock;

// Expects `least` or more starts after an end, none too soon after it.
void ExpectPauses(const std::vector<LogRecord>& records, int least) {
  int pauses = 0;
  for (std::size_t i = 1; i < records.size(); ++i) {
    if (records[i - 1].format == kEndMessage) {
      EXPECT_GE(records[i].time - records[i - 1].time, kRestartPause);
      ++pauses;
    }
  }
  EXPECT_GE(pauses, least);
}

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
  StartSleeper();
  EXPECT_EQ(FieldOf<kOwner>(*child_), "owner");
  EXPECT_TRUE(FieldOf<kThread>(*child_)->joinable());
  EXPECT_EQ(FieldOf<kThread>(*child_).use_count(), 1);
}

TEST_F(ChildProcTest, CanBeDestroyedWithoutItsThread) {
  StartSleeper();
  const auto thread = std::move(FieldOf<kThread>(*child_));
  child_->Stop();
  thread->join();
  child_.reset();
  EXPECT_EQ(system_calls::Kills().size(), 2U);
}

TEST_F(ChildProcTest, CanBeDestroyedAfterItsThreadWasJoined) {
  StartSleeper();
  child_->Stop();
  FieldOf<kThread>(*child_)->join();
  child_.reset();
  EXPECT_EQ(system_calls::Kills().size(), 2U);
}

TEST_F(ChildProcTest, RunsItsThreadOnASmallGuardedStack) {
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
  StartSleeper();
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
  StartSleeper();
  EXPECT_EQ(before, 1U);
}

TEST_F(ChildProcTest, LogsAnyEndAsKilledWithTheRawStatus) {
  Start(Shell("exit 3"));
  const pid_t child = FirstEnd().child;
  EXPECT_GT(child, 0);
  const LogRecord end = Await(kEndMessage, 1).at(0);
  EXPECT_EQ(end.level, 8);
  EXPECT_EQ(end.process, getpid());
  EXPECT_EQ(end.message, Message(kEndMessage, "tick", child, child, 768));
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

// An item's first members, and the name in its messages.
struct NamedItem {
  const char* members;
  const char* name;
};

class ChildProcNameTest : public ChildProcTest,
                          public testing::WithParamInterface<NamedItem> {};

TEST_P(ChildProcNameTest, IsTakenAsText) {
  Start(std::string("{") + GetParam().members + R"("program": "/bin/true"})");
  EXPECT_EQ(Await(kStartMessage, 1).at(0).message,
            Message(kStartMessage, GetParam().name));
}

INSTANTIATE_TEST_SUITE_P(Names, ChildProcNameTest,
                         testing::Values(NamedItem{R"("name": 42, )", "42"},
                                         NamedItem{R"("name": null, )", ""},
                                         NamedItem{"", ""}));

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

// Otherwise it would abort the process.
TEST_F(ChildProcTest, DoesNotReadTheProgramWhenItIsStoppedBeforeItsThreadRuns) {
  EXPECT_EQ(InForkedChild([this] {
              system_calls::OnThreadStart([this] { AwaitGoingOn(); });
              Start(Item(R"("program": {})"));
              child_->Stop();
              may_go_on_ = true;
              child_.reset();
              return 0;
            }),
            0);
}

TEST_F(ChildProcTest, ReadsTheProgramAfreshBeforeEveryStart) {
  std::atomic<ChildProc*> started = nullptr;
  // On the supervision thread, so no other thread uses the item meanwhile.
  system_calls::OnWaitpid([&](pid_t process, int* status, int options) {
    Eventually([&] { return started != nullptr; });
    FieldOf<kItem>(*started)["program"] = std::string("/bin/false");
    return system_calls::RealWaitpid(process, status, options);
  });
  Start(Item(R"("program": "/bin/true")"));
  started = child_.get();
  Await(kEndMessage, 2);
  child_.reset();
  EXPECT_EQ(system_calls::Execs().at(0), Vector({"/bin/true", "/bin/true"}));
  EXPECT_EQ(system_calls::Execs().at(1), Vector({"/bin/false", "/bin/false"}));
}

TEST_F(ChildProcTest, StartsAgainNoSoonerThanFiftyMillisecondsAfterAnEnd) {
  Start(Shell("exit 0"));
  Await(kStartMessage, 6);
  child_.reset();
  ExpectPauses(Records(), 5);
}

#ifdef __linux__

TEST_F(ChildProcTest, PausesForFiftyMillisecondsDespiteSignals) {
  constexpr int kSignals = 5;
  static std::atomic<int> interruptions;
  interruptions = 0;
  // Restarts waitpid. Nothing restarts a pause.
  struct sigaction interrupting {};
  interrupting.sa_handler = [](int) { ++interruptions; };
  interrupting.sa_flags = SA_RESTART;
  struct sigaction before {};
  ASSERT_EQ(sigaction(SIGUSR1, &interrupting, &before), 0);
  std::atomic<pid_t> thread = 0;
  system_calls::OnThreadStart([&thread] { thread = gettid(); });
  Start(Shell("exit 0"));
  for (int i = 1; i <= kSignals; ++i) {
    EXPECT_TRUE(Eventually([&] {
      return thread != 0 && IsBlockedIn(getpid(), thread, SYS_clock_nanosleep);
    }));
    SignalThread(getpid(), thread, SIGUSR1);
    EXPECT_TRUE(Eventually([&] { return interruptions == i; }));
  }
  Await(kStartMessage, Records(kEndMessage).size() + 1);
  child_.reset();
  sigaction(SIGUSR1, &before, nullptr);
  ExpectPauses(Records(), 1);
}

#endif

TEST_F(ChildProcTest, StartsAgainWithoutLimitOrGrowingDelay) {
  constexpr std::size_t kCycles = 40;
  LogPauses();
  Start(Shell("exit 1"));
  Await(kPauseFormat, kCycles);
  const auto records = Records();
  for (std::size_t i = 0; i < 3 * kCycles; i += 3) {
    EXPECT_EQ(records.at(i).format, kStartMessage);
    EXPECT_EQ(records.at(i + 1).format, kEndMessage);
    EXPECT_EQ(records.at(i + 2).message, kFiftyMilliseconds);
  }
}

TEST_F(ChildProcTest, WaitsForItsOwnChildWithoutOptions) {
  constexpr const char* kWaitFormat = "waitpid(%d, %d)";
  system_calls::OnWaitpid([](pid_t process, int* status, int options) {
    __LOG__A(logger, LOGLEVEL_MESSAGE, kWaitFormat, process, options);
    return system_calls::RealWaitpid(process, status, options);
  });
  Start(Shell("exit 0"));
  const pid_t child = FirstEnd().child;
  EXPECT_EQ(Records(kWaitFormat).at(0).message,
            "waitpid(" + std::to_string(child) + ", 0)");
}

TEST_F(ChildProcTest, LogsAFailedWaitAndGoesOn) {
  system_calls::OnWaitpid([](pid_t process, int* status, int options) {
    system_calls::RealWaitpid(process, status, options);
    *status = 0;
    return -1;
  });
  LogPauses();
  Start(Shell("exit 1"));
  Await(kStartMessage, 2);
  const auto records = Records();
  EXPECT_EQ(records.at(0).format, kStartMessage);
  const LoggedEnd end = EndIn(records.at(1)).value();
  EXPECT_GT(end.child, 0);
  EXPECT_EQ(end.ret, -1);
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(records.at(2).message, kFiftyMilliseconds);
  EXPECT_EQ(records.at(3).format, kStartMessage);
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

TEST_F(ChildProcTest, ObjectsSuperviseIndependently) {
  StartSleeper();
  const auto other = Make(R"({"name": "other", "program": "/bin/true"})");
  Await(kEndMessage, 3);
  for (const LogRecord& end : Records(kEndMessage)) {
    EXPECT_EQ(EndIn(end).value().name, "other");
  }
}

// Failures.

TEST_F(ChildProcTest, AProgramThatIsNotAStringEndsTheWholeProcess) {
  for (const std::string program : {"{}", "[1]"}) {
    EXPECT_EQ(InForkedChild([&] {
                const auto fatal = Make(Item("\"program\": " + program));
                pause();
                return 0;
              }),
              -SIGABRT);
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
  LogPauses();
  Start(Item(kSleeper));
  const LogRecord failure = Await(kForkFailedMessage, 1).at(0);
  EXPECT_EQ(failure.level, 8);
  EXPECT_EQ(failure.message, Message(kForkFailedMessage, "tick"));
  std::this_thread::sleep_for(4 * kRestartPause);
  EXPECT_EQ(forks_, 1);
  EXPECT_EQ(FieldOf<kPid>(*child_), -1);
  EXPECT_TRUE(Eventually([&] { return !FieldOf<kRunning>(*child_); }));
  child_.reset();
  EXPECT_EQ(std::ranges::count(Records(kPauseFormat), kFiftyMilliseconds,
                               &LogRecord::message),
            0);
}

// A logger that sees the process id of a ChildProc at a failed fork.
class FailedForkLog final : public ILog {
 public:
  explicit FailedForkLog(const std::unique_ptr<ChildProc>& child)
      : child_(child) {}

  void LogV(LOGLEVEL, const char* format, va_list) override {
    if (format == std::string_view(kForkFailedMessage)) {
      process_ = FieldOf<kPid>(*child_).load();
      has_logged_ = true;
    }
  }

  // Waits for the failed fork.
  int Process() const {
    EXPECT_TRUE(Eventually([this] { return has_logged_.load(); }));
    return process_;
  }

 private:
  const std::unique_ptr<ChildProc>& child_;
  std::atomic<int> process_ = 0;
  std::atomic<bool> has_logged_ = false;
};

// A logger may stop the item there.
TEST_F(ChildProcTest, KeepsTheResultOfAFailedForkBeforeItLogs) {
  FailedForkLog log(child_);
  logger = &log;
  system_calls::OnFork([this] {
    AwaitGoingOn();
    return -1;
  });
  Start(Item(kSleeper));
  may_go_on_ = true;
  EXPECT_EQ(log.Process(), -1);
  child_.reset();
}

TEST_F(ChildProcTest, DestroyingAfterAFailedForkSignalsEveryProcess) {
  system_calls::OnFork([] { return -1; });
  Start(Item(kSleeper));
  Await(kForkFailedMessage, 1);
  child_.reset();
  EXPECT_EQ(system_calls::Kills(), (Kills{{-1, SIGKILL}}));
}

// Stopping.

TEST_F(ChildProcTest, DestroyingBeforeTheFirstForkSignalsTheProcessGroup) {
  HoldFork();
  Start(Shell("exit 0"));
  EXPECT_EQ(DestroyAtHeldFork(), (Kills{{0, SIGKILL}}));
}

TEST_F(ChildProcTest, DestroyingKillsTheChildAndWaitsForThePause) {
  StartSleeper();
  const auto start = steady_clock::now();
  child_.reset();
  EXPECT_GE(steady_clock::now() - start, kRestartPause);
  EXPECT_EQ(FirstStatus(), SIGKILL);
  EXPECT_EQ(Records(kStartMessage).size(), 1U);
  EXPECT_EQ(system_calls::Kills(), (Kills{{FirstEnd().child, SIGKILL}}));
}

TEST_F(ChildProcTest, DestroyingMissesAChildThatIsForkedAtThatMoment) {
  HoldFork();
  const std::string mark = directory_.Path() / "mark";
  Start(Shell("sleep 0.3; echo done > " + mark));
  DestroyAtHeldFork();
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
  StartSleeper();
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
    StartSleeper();
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
  StartSleeper();
  child_->Stop();
  Await(kEndMessage, 1);
  const pid_t child = system_calls::Kills().at(0).first;
  child_.reset();
  EXPECT_EQ(system_calls::Kills(), (Kills{{child, SIGKILL}, {child, SIGKILL}}));
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

}  // namespace
