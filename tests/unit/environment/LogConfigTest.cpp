#include <gtest/gtest.h>
#include <sys/wait.h>

#include "environment/AppPaths.h"
#include "environment/LogConfig.h"
#include "environment/Logging.h"
#include "tests/support/LauncherRun.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TempDir.h"

namespace {

TEST(StringToLogLevel, KnowsSixNames) {
  EXPECT_EQ(StringToLogLevel("DEBUG"), 1);
  EXPECT_EQ(StringToLogLevel("MESSAGE"), 2);
  EXPECT_EQ(StringToLogLevel("WARNING"), 4);
  EXPECT_EQ(StringToLogLevel("ERROR"), 8);
  EXPECT_EQ(StringToLogLevel("CRITICAL"), 16);
  EXPECT_EQ(StringToLogLevel("VERBOSE"), 17);
}

TEST(StringToLogLevel, GivesErrorForAnyOtherText) {
  for (const char* const text : {"", "debug", "Debug", " DEBUG", "DEBUG ",
                                 "DEBU", "DEBUGS", "1", "17", "INFO"}) {
    EXPECT_EQ(StringToLogLevel(text), 8) << text;
  }
  EXPECT_EQ(StringToLogLevel(std::string("DEBUG\0", 6)), 8);
}

// The test program has no "qvxapi.ini", so its SDK name is empty and "log.ini"
// lies directly in the application-support directory.
class GetLogLevelTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(GetSDKName(), "");
    setenv("HOME", directory_.Path().c_str(), 1);
    logger = &log_;
  }
  void TearDown() override { logger = nullptr; }

  void WriteIni(const std::string& content) {
    directory_.Write("Library/Application Support/log.ini", content);
  }

  // Expects that the failure has been logged `count` times, and nothing else.
  void ExpectFailuresLogged(std::size_t count) {
    const auto records = RecordingLog::Read(log_file_);
    ASSERT_EQ(records.size(), count);
    for (const LogRecord& record : records) {
      EXPECT_EQ(record.level, 8);
      EXPECT_EQ(record.message, "[SERVICE   ] Failed to get log level");
    }
  }

  TempDir directory_;
  std::string log_file_ = directory_.Path() / "log";
  RecordingLog log_{log_file_};
};

TEST_F(GetLogLevelTest, ReturnsTheConfiguredLevel) {
  WriteIni("[LOG]\nLEVEL=DEBUG\n");
  EXPECT_EQ(GetLogLevel(), 1);
  WriteIni("[log]\nlevel=VERBOSE\n");
  EXPECT_EQ(GetLogLevel(), 17);
  ExpectFailuresLogged(0);
}

TEST_F(GetLogLevelTest, IsCaseSensitiveForTheValue) {
  WriteIni("[LOG]\nLEVEL=debug\n");
  EXPECT_EQ(GetLogLevel(), 8);
  ExpectFailuresLogged(0);
}

TEST_F(GetLogLevelTest, ReturnsErrorAndLogsWithoutAFile) {
  EXPECT_EQ(GetLogLevel(), 8);
  ExpectFailuresLogged(1);
}

TEST_F(GetLogLevelTest, ReturnsErrorAndLogsWithoutTheKey) {
  WriteIni("[LOG]\nLEVELS=DEBUG\n[SDK]\nLEVEL=DEBUG\n");
  EXPECT_EQ(GetLogLevel(), 8);
  ExpectFailuresLogged(1);
}

TEST_F(GetLogLevelTest, ReturnsErrorAndLogsWhenTheValueIsTooLong) {
  WriteIni("[LOG]\nLEVEL=" + std::string(1024, 'D') + "\n");
  EXPECT_EQ(GetLogLevel(), 8);
  ExpectFailuresLogged(1);
  WriteIni("[LOG]\nLEVEL=" + std::string(1023, 'D') + "\n");
  EXPECT_EQ(GetLogLevel(), 8);
  ExpectFailuresLogged(1);
}

TEST_F(GetLogLevelTest, DropsTheMessageWithoutALogger) {
  logger = nullptr;
  EXPECT_EQ(GetLogLevel(), 8);
  ExpectFailuresLogged(0);
}

TEST(InitLog, KeepsALoggerThatTheLibraryReturnsWithAnError) {
  REQUIRE_SANDBOX();
  LauncherRun run;
  run.SetEnvironment("RECORDER", "complain");
  run.StartItems(R"({"0": {}})");
  run.Await("[LAUNCHER  ] There is an item has no name.");
  run.AwaitWaiting();
  const int status = run.Stop();
  EXPECT_EQ(WEXITSTATUS(status), 1);
}

}  // namespace
