#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "environment/AppPaths.h"
#include "tests/support/Command.h"
#include "tests/support/FakeExecutablePath.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBufferBytes = 1024;

struct Answers {
  std::string app_path;
  std::string layout;
  std::string name;
  std::string data_path;
  std::string log_path;
};

// The results for the executable at `path`, with `home` as HOME if there is
// one.
Answers AnswersOf(const std::string& path,
                  const std::optional<std::string>& home = "/Users/ann") {
  std::vector<std::string> command = {"/usr/bin/env", "-u", "HOME", path};
  if (home) {
    command.insert(command.end() - 1, "HOME=" + *home);
  }
  const CommandResult result = RunCommand(command);
  EXPECT_EQ(result.status, 0) << path;
  std::istringstream lines(result.output);
  Answers answers;
  std::getline(lines, answers.app_path);
  std::getline(lines, answers.layout);
  std::getline(lines, answers.name);
  std::getline(lines, answers.data_path);
  std::getline(lines, answers.log_path);
  return answers;
}

class AppPathsTest : public testing::Test {
 protected:
  // Puts the probe at `path` below the test's directory.
  std::string Install(const fs::path& path) {
    const fs::path file = directory_.Path() / path;
    fs::create_directories(file.parent_path());
    fs::create_symlink(ENVIRONMENT_PROBE, file);
    return file;
  }

  // Puts the probe, named `name`, at a path of exactly `length` bytes.
  std::string InstallAtLength(std::size_t length, const std::string& name) {
    constexpr std::size_t kComponent = 200;
    std::string path = directory_.Path();
    const std::size_t tail = 1 + name.size();
    while (length - path.size() > tail + kComponent + 2) {
      path += "/" + std::string(kComponent - 1, 'd');
    }
    path += "/" + std::string(length - path.size() - tail - 1, 'e');
    std::string file = Install(
        fs::path(path + "/" + name).lexically_relative(directory_.Path()));
    EXPECT_EQ(file.size(), length);
    return file;
  }

  std::string Below(const fs::path& path) const {
    return directory_.Path() / path;
  }

  TempDir directory_;
};

TEST_F(AppPathsTest, FindsTheFrameworksNextToTheExecutablesDirectory) {
  fs::create_directories(Below("Contents/Frameworks"));
  const std::string path = Install("Contents/MacOS/launcher");
  EXPECT_EQ(AnswersOf(path).app_path, Below("Contents/Frameworks"));
}

TEST_F(AppPathsTest, ResolvesSymbolicLinks) {
  fs::create_directories(Below("elsewhere/Real"));
  fs::create_directories(Below("Contents"));
  fs::create_symlink(Below("elsewhere/Real"), Below("Contents/Frameworks"));
  const std::string path = Install("Contents/MacOS/launcher");
  EXPECT_EQ(AnswersOf(path).app_path, Below("elsewhere/Real"));
}

TEST_F(AppPathsTest, ResolvesTheExecutablesDirectoryBeforeItsParent) {
  for (const char* const folder :
       {"elsewhere/MacOS", "elsewhere/Frameworks", "Contents/Frameworks"}) {
    fs::create_directories(Below(folder));
  }
  fs::create_directory_symlink(Below("elsewhere/MacOS"),
                               Below("Contents/MacOS"));
  const std::string path = Install("Contents/MacOS/launcher");
  EXPECT_EQ(AnswersOf(path).app_path, Below("elsewhere/Frameworks"));
}

TEST_F(AppPathsTest, DoesNotResolveAMissingDirectorysParent) {
  fs::create_directories(Below("Frameworks"));
  g_executable_path = Below("missing/launcher");
  EXPECT_EQ(GetAppPath(), Below("missing/../Frameworks"));
}

TEST_F(AppPathsTest, KeepsAPathThatCannotBeResolved) {
  const std::string path = Install("Contents/MacOS/launcher");
  EXPECT_EQ(AnswersOf(path).app_path, Below("Contents/MacOS/../Frameworks"));
}

TEST_F(AppPathsTest, KeepsAPathWhoseResolvedFormIsTooLong) {
  std::string deep = directory_.Path();
  while (deep.size() < kBufferBytes) {
    deep += "/" + std::string(200, 'f');
  }
  fs::create_directories(deep);
  fs::create_directories(Below("Contents"));
  fs::create_symlink(deep, Below("Contents/Frameworks"));
  const std::string path = Install("Contents/MacOS/launcher");
  EXPECT_EQ(AnswersOf(path).app_path, Below("Contents/MacOS/../Frameworks"));
}

TEST_F(AppPathsTest, ResolvesUpToTheLongestPathThatFits) {
  std::string deep = directory_.Path();
  while (deep.size() + 210 < kBufferBytes) {
    deep += "/" + std::string(200, 'f');
  }
  deep += "/" + std::string(kBufferBytes - 1 - deep.size() - 1, 'g');
  ASSERT_EQ(deep.size(), kBufferBytes - 1);
  fs::create_directories(deep);
  fs::create_directories(Below("Contents"));
  fs::create_symlink(deep, Below("Contents/Frameworks"));
  const std::string path = Install("Contents/MacOS/launcher");
  EXPECT_EQ(AnswersOf(path).app_path, deep);
}

TEST_F(AppPathsTest, DoesNotResolveTheExecutableItself) {
  fs::create_directories(Below("a/Frameworks"));
  const std::string path = Install("a/bin/launcher");
  EXPECT_EQ(AnswersOf(path).app_path, Below("a/Frameworks"))
      << "the link's target is elsewhere";
}

TEST_F(AppPathsTest, FinderSyncFrameworksAreFourLevelsUp) {
  fs::create_directories(Below("Frameworks"));
  const std::string path = Install("1/2/3/4/QuillmapFinderSync");
  const Answers answers = AnswersOf(path);
  EXPECT_EQ(answers.layout, "finder sync");
  EXPECT_EQ(answers.app_path, Below("Frameworks"));
}

TEST_F(AppPathsTest, FinderSyncIsRecognisedByTheEndOfThePath) {
  EXPECT_EQ(AnswersOf(Install("a/QuillmapFinderSync")).layout, "finder sync");
  EXPECT_EQ(AnswersOf(Install("a/MyQuillmapFinderSync")).layout, "finder sync");
  EXPECT_EQ(AnswersOf(Install("a/quillmapfindersync")).layout, "ordinary");
  EXPECT_EQ(AnswersOf(Install("a/QuillmapFinderSync2")).layout, "ordinary");
  EXPECT_EQ(AnswersOf(Install("a/uillmapFinderSync")).layout, "ordinary");
  EXPECT_EQ(AnswersOf(Install("QuillmapFinderSync.d/launcher")).layout,
            "ordinary");
}

TEST_F(AppPathsTest, ExecutablePathsOf1023BytesFit) {
  const Answers answers =
      AnswersOf(InstallAtLength(kBufferBytes - 1, "QuillmapFinderSync"));
  EXPECT_EQ(answers.layout, "finder sync");
  EXPECT_TRUE(answers.app_path.ends_with("/../../../../Frameworks"));
  EXPECT_GT(answers.app_path.size(), kBufferBytes)
      << "a joined path that does not fit is returned whole";
}

TEST_F(AppPathsTest, ExecutablePathsOf1024BytesDoNotFit) {
  const Answers answers =
      AnswersOf(InstallAtLength(kBufferBytes, "QuillmapFinderSync"));
  EXPECT_EQ(answers.app_path, "");
  EXPECT_EQ(answers.layout, "ordinary");
}

TEST_F(AppPathsTest, ReadsTheSdkNameFromTheFrameworks) {
  directory_.Write("Contents/Frameworks/qvxapi.ini", "[SDK]\nNAME=Demo\n");
  const Answers answers = AnswersOf(Install("Contents/MacOS/launcher"));
  EXPECT_EQ(answers.name, "Demo");
  EXPECT_EQ(answers.log_path, "/Users/ann/Library/Logs/Demo/qvxlog");
  EXPECT_EQ(answers.data_path, "/Users/ann/Library/Application Support");
}

TEST_F(AppPathsTest, TheSdkNameIsEmptyWithoutAnEntry) {
  const std::string path = Install("Contents/MacOS/launcher");
  const auto expect_empty = [&] {
    const Answers answers = AnswersOf(path);
    EXPECT_EQ(answers.name, "");
    EXPECT_EQ(answers.log_path, "/Users/ann/Library/Logs//qvxlog");
  };
  expect_empty();
  for (const char* const content :
       {"", "[SDK]\n", "[SDK]\nNAME=\n", "[LOG]\nNAME=Demo\n",
        "[SDK]\nTITLE=Demo\n"}) {
    directory_.Write("Contents/Frameworks/qvxapi.ini", content);
    expect_empty();
  }
}

TEST_F(AppPathsTest, SdkNamesOfUpTo1023BytesFit) {
  const std::string path = Install("Contents/MacOS/launcher");
  const std::string longest(kBufferBytes - 1, 'n');
  directory_.Write("Contents/Frameworks/qvxapi.ini",
                   "[SDK]\nNAME=" + longest + "\n");
  EXPECT_EQ(AnswersOf(path).name, longest);
  directory_.Write("Contents/Frameworks/qvxapi.ini",
                   "[SDK]\nNAME=" + longest + "n\n");
  EXPECT_EQ(AnswersOf(path).name, "");
}

TEST_F(AppPathsTest, FinderSyncDataIsFourLevelsAboveHomeAndItsLogIsNot) {
  directory_.Write("Frameworks/qvxapi.ini", "[SDK]\nNAME=Demo\n");
  const Answers answers = AnswersOf(Install("1/2/3/4/QuillmapFinderSync"));
  EXPECT_EQ(answers.data_path,
            "/Users/ann/../../../../Library/Application Support");
  EXPECT_EQ(answers.log_path, "/Users/ann/Library/Logs/Demo/qvxlog");
}

TEST_F(AppPathsTest, AnUnsetHomeCountsAsEmpty) {
  const std::string path = Install("Contents/MacOS/launcher");
  for (const auto& home : {std::optional<std::string>(), {""}}) {
    const Answers answers = AnswersOf(path, home);
    EXPECT_EQ(answers.data_path, "/Library/Application Support");
    EXPECT_EQ(answers.log_path, "/Library/Logs//qvxlog");
  }
}

TEST_F(AppPathsTest, NothingIsNormalised) {
  const Answers answers =
      AnswersOf(Install("Contents/MacOS/launcher"), "/a//b/./../");
  EXPECT_EQ(answers.data_path, "/a//b/./..//Library/Application Support");
  EXPECT_EQ(answers.log_path, "/a//b/./..//Library/Logs//qvxlog");
}

TEST_F(AppPathsTest, NothingIsCached) {
  for (const std::string name : {"First", "Second"}) {
    g_executable_path = Below(name + "/MacOS/launcher");
    directory_.Write(name + "/Frameworks/qvxapi.ini", "[SDK]\nNAME=" + name);
    fs::create_directories(Below(name + "/MacOS"));
    setenv("HOME", ("/" + name).c_str(), 1);
    EXPECT_FALSE(IsFinderSync());
    EXPECT_EQ(GetAppPath(), Below(name + "/Frameworks"));
    EXPECT_EQ(GetSDKName(), name);
    EXPECT_EQ(GetAppDataPath(), "/" + name + "/Library/Application Support");
    EXPECT_EQ(GetLogPath(), "/" + name + "/Library/Logs/" + name + "/qvxlog");
  }
  directory_.Write("Second/Frameworks/qvxapi.ini", "[SDK]\nNAME=Third");
  EXPECT_EQ(GetSDKName(), "Third");
  g_executable_path = "/QuillmapFinderSync";
  EXPECT_TRUE(IsFinderSync());
}

TEST_F(AppPathsTest, AnUnknownExecutablePathGivesNoFrameworks) {
  g_executable_path.reset();
  EXPECT_EQ(GetAppPath(), "");
  EXPECT_FALSE(IsFinderSync());
}

TEST_F(AppPathsTest, AnUnknownExecutablePathTakesTheNameFromTheRoot) {
  constexpr int kRefused = 2;
  directory_.Write("qvxapi.ini", "[SDK]\nNAME=Root\n");
  const int status = InForkedChild([&] {
    if (chroot(directory_.Path().c_str()) != 0) {
      return kRefused;
    }
    g_executable_path.reset();
    return GetSDKName() == "Root" ? 0 : 1;
  });
  if (status == kRefused) {
    GTEST_SKIP() << "Changing the root directory needs root.";
  }
  EXPECT_EQ(status, 0);
}

TEST_F(AppPathsTest, AnExecutablePathWithoutASlashIsKeptWhole) {
  g_executable_path = "no-such-launcher";
  EXPECT_EQ(GetAppPath(), "no-such-launcher/../Frameworks");
}

TEST_F(AppPathsTest, OnlyTheExecutablesNameIsCutOff) {
  g_executable_path = "/no/such/folder/launcher";
  EXPECT_EQ(GetAppPath(), "/no/such/folder/../Frameworks");
  g_executable_path = "/no/such/folder/QuillmapFinderSync";
  EXPECT_EQ(GetAppPath(), "/no/such/folder/../../../../Frameworks");
  g_executable_path = "/launcher";
  EXPECT_EQ(GetAppPath(), "/../Frameworks");
}

TEST_F(AppPathsTest, ExecutablePathsAreReadInto1024Bytes) {
  g_executable_path = "/launcher";
  GetAppPath();
  EXPECT_EQ(g_offered_size, kBufferBytes);
}

}  // namespace
