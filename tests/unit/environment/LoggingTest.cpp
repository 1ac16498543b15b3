#include <gtest/gtest.h>

#include <type_traits>

#include "common/util/Trim.h"
#include "environment/Logging.h"
#include "tests/support/OtherUnit.h"
#include "tests/support/Poll.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SystemLog.h"
#include "tests/support/TempDir.h"

namespace {

TEST(LogLevel, HasTheValuesOfTheLoggerLibrary) {
  EXPECT_EQ(sizeof(LOGLEVEL), 4U);
  EXPECT_EQ(LOGLEVEL_DEBUG, 1);
  EXPECT_EQ(LOGLEVEL_MESSAGE, 2);
  EXPECT_EQ(LOGLEVEL_WARNING, 4);
  EXPECT_EQ(LOGLEVEL_ERROR, 8);
  EXPECT_EQ(LOGLEVEL_CRITICAL, 16);
  EXPECT_EQ(LOGLEVEL_VERBOSE, 17);
}

class LoggingTest : public testing::Test {
 protected:
  std::vector<LogRecord> Records() const {
    return RecordingLog::Read(log_file_);
  }

  TempDir directory_;
  std::string log_file_ = directory_.Path() / "log";
  RecordingLog log_{log_file_};
};

TEST_F(LoggingTest, TheLoggerIsNullAtFirst) { EXPECT_EQ(logger, nullptr); }

TEST_F(LoggingTest, TheThirdOperationIsLogV) {
  EXPECT_FALSE(std::has_virtual_destructor_v<ILog>);
  using Slot = void (*)(ILog*, LOGLEVEL, const char*, va_list);
  const auto call_slot = [this](int slot, ...) {
    va_list arguments;
    va_start(arguments, slot);
    ILog* const log = &log_;
    Slot* const table = *reinterpret_cast<Slot**>(log);
    table[slot](log, LOGLEVEL_WARNING, "%d %s", arguments);
    va_end(arguments);
  };
  call_slot(2, 5, "third");
  const auto records = Records();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].level, 4);
  EXPECT_EQ(records[0].message, "5 third");
}

TEST_F(LoggingTest, TheOtherOperationsCallLogV) {
  log_.LogText(LOGLEVEL_DEBUG, "100%");
  log_.Log(LOGLEVEL_ERROR, "%d%%", 5);
  const auto records = Records();
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0].message, "100%");
  EXPECT_EQ(records[1].message, "5%");
}

TEST_F(LoggingTest, ACallWithoutALoggerDoesNothing) {
  __LOG__A(nullptr, LOGLEVEL_ERROR, "%s", "dropped");
}

TEST_F(LoggingTest, ACallReachesLogVUnchanged) {
  __LOG__A(&log_, LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork %s", "a%d");
  __LOG__A(&log_, LOGLEVEL_ERROR, "[LAUNCHER  ] %s %d %d", "x", -1, 768);
  const auto records = Records();
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0].level, 1);
  EXPECT_EQ(records[0].format, "[LAUNCHER  ] Start to fork %s");
  EXPECT_EQ(records[0].message, "[LAUNCHER  ] Start to fork a%d");
  EXPECT_EQ(records[1].level, 8);
  EXPECT_EQ(records[1].format, "[LAUNCHER  ] %s %d %d");
  EXPECT_EQ(records[1].message, "[LAUNCHER  ] x -1 768");
}

TEST(FileLocalFunctions, EverySourceFileHasItsOwnCopy) {
  EXPECT_NE(reinterpret_cast<void*>(&__LOG__A), OtherUnitsLogCall());
  EXPECT_NE(reinterpret_cast<void*>(&trim), OtherUnitsTrim());
}

TEST(WriteEvent, WritesOneLineWithThePriorityUnchanged) {
  REQUIRE_SANDBOX();
  SystemLog system_log;
  std::vector<std::string> lines;
  const auto written = [&](const std::string& source, unsigned long level,
                           const std::string& text) {
    WriteEvent(source, level, text);
    EXPECT_TRUE(Eventually([&] {
      lines = system_log.Lines();
      return !lines.empty();
    }));
    EXPECT_EQ(lines.size(), 1U);
    return lines.at(0);
  };
  const std::string event = written("Tamrel Launcher", 3, "wrong parameters.");
  EXPECT_TRUE(event.starts_with("<11>")) << event;
  EXPECT_TRUE(event.ends_with(": Tamrel Launcher : wrong parameters."))
      << event;
  EXPECT_TRUE(written("a", 6, "b").starts_with("<14>"));
}

TEST(WriteEvent, WritesPercentSignsUnchanged) {
  REQUIRE_SANDBOX();
  SystemLog system_log;
  WriteEvent("100%s", 3, "%n%d%%");
  std::vector<std::string> lines;
  EXPECT_TRUE(Eventually([&] {
    lines = system_log.Lines();
    return !lines.empty();
  }));
  EXPECT_TRUE(lines.at(0).ends_with(": 100%s : %n%d%%")) << lines.at(0);
}

}  // namespace
