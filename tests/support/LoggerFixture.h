// Loggers on the log "x" in a temporary directory.

#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "logger/Descriptor.h"
#include "logger/Logger.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/LogReader.h"
#include "tests/support/TempDir.h"

// Holds the lock of the rotations in a directory, as another process would.
class HeldLock {
 public:
  explicit HeldLock(const std::filesystem::path& directory)
      : directory_(Open(AT_FDCWD, directory.c_str(), O_RDONLY)) {
    EXPECT_EQ(flock(directory_.number(), LOCK_EX), 0);
  }

 private:
  const Descriptor directory_;
};

class LoggerFixture : public testing::Test {
 protected:
  LoggerFixture() { std::filesystem::create_directory(logs_); }

  Logger& Open(const LogLimits& limits = {}) {
    loggers_.push_back(
        std::make_unique<Logger>(logs_, "x", LOGLEVEL_DEBUG, limits));
    EXPECT_EQ(loggers_.back()->Open(), 0);
    return *loggers_.back();
  }

  static void Log(Logger& logger, const std::string& text) {
    logger.Log(LOGLEVEL_ERROR, "%s", text.c_str());
  }

  // Logs `count` lines: the numbers from `first` on.
  static void LogNumbers(Logger& logger, int first, int count) {
    for (const std::string& number : Numbers(first, count)) {
      Log(logger, number);
    }
  }

  // Waits until the last look is too old, so that the next line looks again.
  static void OutlastLook() {
    using std::chrono::system_clock;
    const auto end = system_clock::now() + kMaxLookAge;
    while (system_clock::now() < end) {
      std::this_thread::sleep_for(kMaxLookAge);
    }
  }

  static Messages Numbers(int first, int count) {
    Messages messages;
    for (int i = first; i < first + count; ++i) {
      messages.push_back(std::to_string(i));
    }
    return messages;
  }

  // The length of a line with a message of one character.
  static std::size_t LineBytes() {
    TempDir dir;
    Logger logger(dir.Path(), "x", LOGLEVEL_DEBUG);
    EXPECT_EQ(logger.Open(), 0);
    Log(logger, "0");
    return std::filesystem::file_size(dir.Path() / LogFileName("x"));
  }

  // Whether `body` passes in a forked child, which it may leave in any state.
  template <class Body>
  static bool PassesInForkedChild(Body body) {
    return InForkedChild([&body] {
             body();
             return HasFailure() ? 1 : 0;
           }) == 0;
  }

  // The name of the log's old file `number`.
  std::filesystem::path Old(int number) const {
    return logs_ / OldLogFileName("x", number);
  }

  const TempDir dir_;
  const std::filesystem::path logs_ = dir_.Path() / "logs";
  const std::filesystem::path log_ = logs_ / LogFileName("x");

 private:
  std::vector<std::unique_ptr<Logger>> loggers_;
};
