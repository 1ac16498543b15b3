// One real ChildProc, its log and its calls of execv.

#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "environment/Logging.h"
#include "launcher/ChildProc.h"
#include "launcher/Messages.h"
#include "tests/support/Poll.h"
#include "tests/support/ProcFs.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SystemCalls.h"
#include "tests/support/TempDir.h"

inline constexpr const char* kSleeper =
    R"("program": "/bin/sleep", "argc": 1, "args": {"0": "1000"})";

// The message for a pause of the supervision thread after `LogPauses`.
inline constexpr const char* kPauseFormat = "a pause of %lld ns";
inline constexpr const char* kFiftyMilliseconds = "a pause of 50000000 ns";

using Kills = std::vector<std::pair<pid_t, int>>;
using Vector = std::vector<std::string>;

// The item "tick" with `members`.
inline std::string Item(const std::string& members) {
  return R"({"name": "tick", )" + members + "}";
}

// An item that runs `script` in a shell.
inline std::string Shell(const std::string& script) {
  return Item(R"("program": "/bin/sh", "argc": 2, "args": {"0": "-c", "1": ")" +
              script + R"("})");
}

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

  static std::unique_ptr<ChildProc> Make(const std::string& item) {
    return std::make_unique<ChildProc>("owner", JsonObject(item.c_str()));
  }

  void Start(const std::string& item) { child_ = Make(item); }

  // Starts `item` and waits until the supervision thread waits for its child.
  void StartAndAwait(const std::string& item) {
    Start(item);
    AwaitChild();
  }
  void StartSleeper() { StartAndAwait(Item(kSleeper)); }

  // Starts an item whose program does not exist.
  void StartChain() { StartAndAwait(Item(R"("program": "/nonexistent")")); }

  static void AwaitChild() {
    EXPECT_TRUE(Eventually([] { return ThreadsInWait(getpid()) == 1; }));
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

  // Waits for the first call of execv, and returns its path and vector.
  Vector FirstExec() {
    EXPECT_TRUE(Eventually([] { return !system_calls::Execs().empty(); }));
    return system_calls::Execs().at(0);
  }

  // Waits for the first end of a child, and returns the message about it.
  LoggedEnd FirstEnd() { return EndIn(Await(kEndMessage, 1).at(0)).value(); }
  int FirstStatus() { return FirstEnd().status; }

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

  // Destroys the object while its thread is held before the fork; lets the
  // thread continue once the signal is sent. Returns the signals sent by then.
  Kills DestroyAtHeldFork() {
    AwaitHeldFork();
    std::thread destroyer([&] { child_.reset(); });
    EXPECT_TRUE(Eventually([] { return !system_calls::Kills().empty(); }));
    Kills kills = system_calls::Kills();
    may_go_on_ = true;
    destroyer.join();
    return kills;
  }

  TempDir directory_;
  std::string log_file_ = directory_.Path() / "log";
  RecordingLog log_{log_file_};
  std::atomic<bool> at_fork_ = false;
  std::atomic<bool> may_go_on_ = false;
  std::atomic<int> forks_ = 0;
  std::unique_ptr<ChildProc> child_;
};
