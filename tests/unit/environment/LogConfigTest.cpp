#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "environment/LogConfig.h"
#include "environment/Logging.h"
#include "launcher/Messages.h"
#include "tests/support/Command.h"
#include "tests/support/FakeExecutablePath.h"
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

// Literal on purpose: users and other programs search for these texts.
TEST(LogConfig, KeepsTheWordingOfItsMessages) {
  EXPECT_STREQ(kNoLevelMessage, "[SERVICE   ] Failed to get log level");
  EXPECT_STREQ(kOwnerEventSource, "Tamrel Launcher for ");
  EXPECT_STREQ(kNoLoggerEvent, "Failed to initialize logger");
}

class GetLogLevelTest : public testing::Test {
 protected:
  void SetUp() override {
    g_executable_path = directory_.Path() / "Contents/MacOS/launcher";
    std::filesystem::create_directories(directory_.Path() / "Contents/MacOS");
    directory_.Write("Contents/Frameworks/qvxapi.ini", "[SDK]\nNAME=Demo\n");
    setenv("HOME", directory_.Path().c_str(), 1);
    logger = &log_;
  }
  void TearDown() override { logger = nullptr; }

  void WriteIni(const std::string& content) {
    directory_.Write("Library/Application Support/Demo/log.ini", content);
  }

  // Expects the failure to have been logged `count` times, and nothing else.
  void ExpectFailuresLogged(std::size_t count) {
    const auto records = RecordingLog::Read(log_file_);
    ASSERT_EQ(records.size(), count);
    for (const LogRecord& record : records) {
      EXPECT_EQ(record.level, 8);
      EXPECT_EQ(record.message, kNoLevelMessage);
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

TEST_F(GetLogLevelTest, ReadsTheFileWithoutAnSdkNameToo) {
  directory_.Write("Contents/Frameworks/qvxapi.ini", "");
  directory_.Write("Library/Application Support/log.ini",
                   "[LOG]\nLEVEL=WARNING\n");
  EXPECT_EQ(GetLogLevel(), 4);
}

TEST_F(GetLogLevelTest, ReadsTheFileFourLevelsAboveHomeForFinderSync) {
  g_executable_path = directory_.Path() / "1/2/3/4/QuillmapFinderSync";
  std::filesystem::create_directories(directory_.Path() / "1/2/3/4");
  directory_.Write("Frameworks/qvxapi.ini", "[SDK]\nNAME=Demo\n");
  const std::string home = directory_.Path() / "a/b/c/d";
  setenv("HOME", home.c_str(), 1);
  directory_.Write("a/b/c/d/Library/Application Support/Demo/log.ini",
                   "[LOG]\nLEVEL=WARNING\n");
  WriteIni("[LOG]\nLEVEL=DEBUG\n");
  EXPECT_EQ(GetLogLevel(), 1);
}

TEST_F(GetLogLevelTest, DropsTheMessageWithoutALogger) {
  logger = nullptr;
  EXPECT_EQ(GetLogLevel(), 8);
  ExpectFailuresLogged(0);
}

// Puts the probe at `probe` below a directory of its own, the recording library
// and an SDK name into the framework directory at `frameworks`, and a level of
// DEBUG into "log.ini" below `data`; then initialises the log in the probe,
// where the library behaves as `recorder` says. Returns the calls and messages
// that the library got after the first call.
std::vector<std::string> MessagesOfInitLog(const std::string& probe,
                                           const std::string& frameworks,
                                           const std::string& data,
                                           const std::string& recorder = "") {
  namespace fs = std::filesystem;
  const TempDir directory;
  const fs::path& root = directory.Path();
  const std::string file = directory.Write(probe, "");
  fs::remove(file);
  fs::create_symlink(ENVIRONMENT_PROBE, file);
  directory.Write(frameworks + "/qvxapi.ini", "[SDK]\nNAME=Demo\n");
  fs::create_symlink(RECORDING_LIBRARY,
                     root / frameworks / LAUNCHER_LOGGER_FILE);
  directory.Write(data + "/Library/Application Support/Demo/log.ini",
                  "[LOG]\nLEVEL=DEBUG\n");
  fs::create_directories(root / "a/b/c/home");
  const std::string recording = root / "recording";
  const CommandResult result =
      RunCommand({file, "alpha"}, {{"HOME", root / "a/b/c/home"},
                                   {"RECORDING", recording},
                                   {"RECORDER", recorder}});
  EXPECT_EQ(result.status, 0);
  std::vector<std::string> messages;
  for (const LogRecord& record : RecordingLog::Read(recording)) {
    messages.push_back(record.message);
  }
  EXPECT_EQ(messages.at(0), "InitLogger " + (root / "a/b/c/home").string() +
                                "/Library/Logs/Demo/qvxlog");
  messages.erase(messages.begin());
  return messages;
}

const std::vector<std::string> kLoggerMadeAndUsed = {"GetLogger 2 launcher 1",
                                                     "alpha logs"};

TEST(InitLog, LoadsTheLibraryFromTheFrameworks) {
  EXPECT_EQ(MessagesOfInitLog("Contents/MacOS/launcher", "Contents/Frameworks",
                              "a/b/c/home"),
            kLoggerMadeAndUsed);
}

TEST(InitLog, LoadsTheLibraryFromTheFrameworksOfFinderSync) {
  EXPECT_EQ(MessagesOfInitLog("1/2/3/4/QuillmapFinderSync", "Frameworks", "."),
            kLoggerMadeAndUsed);
}

// Where it looked for the level before the call, there is none afterwards.
TEST(InitLog, FindsTheLevelBeforeItCallsTheLibrary) {
  EXPECT_EQ(MessagesOfInitLog("Contents/MacOS/launcher", "Contents/Frameworks",
                              "a/b/c/home", "move"),
            kLoggerMadeAndUsed);
}

TEST(InitLog, KeepsALoggerThatTheLibraryReturnsWithAnError) {
  REQUIRE_SANDBOX();
  LauncherRun run;
  run.SetEnvironment("RECORDER", "complain");
  run.StartItems(R"({"0": {}})");
  run.Await(kNamelessMessage);
  run.AwaitWaiting();
  const int status = run.Stop();
  EXPECT_EQ(WEXITSTATUS(status), 1);
}

}  // namespace
