// The steps of the launcher's start-up, called one by one, with a logger from
// the start. main.cpp is compiled into this program with its `main` renamed.

#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "environment/Logging.h"
#include "launcher/main.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/Poll.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/TempDir.h"

class LoggedTest : public testing::Test {
 protected:
  void SetUp() override { logger = &log_; }
  void TearDown() override { logger = nullptr; }

  // The logged levels and messages.
  using Lines = std::vector<std::pair<int, std::string>>;
  Lines Logged() const {
    Lines lines;
    for (const LogRecord& record : RecordingLog::Read(log_file_)) {
      lines.emplace_back(record.level, record.message);
    }
    return lines;
  }

  TempDir directory_;
  std::string log_file_ = directory_.Path() / "log";
  RecordingLog log_{log_file_};
};

// Puts an item that sleeps into the map, and waits until it runs.
inline void RunSleeper() {
  g_child_map["sleeper"] = std::make_shared<ChildProc>(
      "owner", JsonObject(Sleeper("sleeper").c_str()));
  Eventually([] { return ThreadsInWait(getpid()) == 1; });
}

// Calls `action` again and again until the process ends.
template <class Action>
void Repeat(Action action) {
  for (;;) {
    action();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

// Runs `trigger` while a thread waits as `main` does. Returns the end of the
// wait.
template <class Trigger>
std::future<void> TriggerInAWait(Trigger trigger) {
  std::atomic<bool> waiting = false;
  std::packaged_task<void()> wait([&] {
    std::unique_lock lock(g_process_mutex);
    waiting = true;
    g_process_condition.wait(lock);
  });
  std::future<void> woken = wait.get_future();
  std::thread(std::move(wait)).detach();
  Eventually([&] { return waiting.load(); });
  { const std::lock_guard waits(g_process_mutex); }
  trigger();
  return woken;
}
