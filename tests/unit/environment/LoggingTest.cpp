#include <gtest/gtest.h>
#include <syslog.h>

#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "common/util/Trim.h"
#include "environment/Logging.h"
#include "launcher/Messages.h"
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

// Writes events in the sandbox and reads the lines that the system log
// receives.
class WriteEventTest : public testing::Test {
 protected:
  // The line of the event, from which the time of day is removed.
  std::string LineOf(const std::string& source, unsigned long level,
                     const std::string& text) {
    WriteEvent(source, level, text);
    std::vector<std::string> lines;
    EXPECT_TRUE(Eventually([&] {
      lines = system_log_->Lines();
      return !lines.empty();
    }));
    EXPECT_EQ(lines.size(), 1U);
    std::string line = lines.at(0);
    const std::size_t time = line.find('>') + 1;
    return line.erase(time, std::string("Nov 21 09:41:00 ").size());
  }

  void SetUp() override {
    REQUIRE_SANDBOX();
    system_log_.emplace();
  }

 private:
  std::optional<SystemLog> system_log_;
};

constexpr char kProgram[] = "environment_test: ";

TEST_F(WriteEventTest, WritesOneLineWithTheProgramsName) {
  EXPECT_EQ(
      LineOf(kEventSource, kEventPriority, kWrongParametersEvent),
      std::string("<11>") + kProgram + "Tamrel Launcher : wrong parameters.");
}

// 11 and 14: the default facility is 1 (user), and counts eight times.
TEST_F(WriteEventTest, PassesThePriorityOnUnchanged) {
  const std::string line = std::string(kProgram) + "a : b";
  EXPECT_EQ(LineOf("a", 3, "b"), "<11>" + line);
  EXPECT_EQ(LineOf("a", 6, "b"), "<14>" + line);
  EXPECT_EQ(LineOf("a", LOG_LOCAL0 | 3, "b"), "<131>" + line);
  EXPECT_EQ(LineOf("a", LOG_DAEMON | 3, "b"), "<27>" + line);
}

TEST_F(WriteEventTest, WritesPercentSignsUnchanged) {
  EXPECT_EQ(LineOf("100%s", 3, "%n%d%%"),
            std::string("<11>") + kProgram + "100%s : %n%d%%");
}

TEST_F(WriteEventTest, WritesEmptyTexts) {
  EXPECT_EQ(LineOf("", 3, ""), std::string("<11>") + kProgram + " : ");
}

}  // namespace
