#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "common/util/ExecutablePath.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TempDir.h"

#ifdef __linux__
#include <sys/mount.h>
#endif

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kRoomy = 5000;

struct Answer {
  int result = 0;
  std::uint32_t size = 0;
  std::string path;
  std::string current_path;
};

// Each test starts a copy of the probe from the path that it needs.
class ExecutablePath : public testing::Test {
 protected:
  void SetUp() override { InstallProbe("probe"); }

  std::string Folder() const { return folder_.Path(); }

  std::string InstallProbe(const fs::path& name) const {
    const fs::path probe = folder_.Path() / name;
    fs::create_directories(probe.parent_path());
    fs::copy_file(EXECUTABLE_PATH_PROBE, probe);
    return probe;
  }

  // Starts `path` in `directory` and reads its output.
  Answer Start(const std::string& directory, const std::string& path,
               std::vector<std::string> arguments = {
                   std::to_string(kRoomy)}) const {
    std::array<int, 2> output;
    EXPECT_EQ(pipe(output.data()), 0);
    const pid_t child = fork();
    if (child == 0) {
      dup2(output[1], STDOUT_FILENO);
      Execute(directory, path, arguments);
    }
    close(output[1]);
    Answer answer = Parse(ReadAll(output[0]));
    close(output[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << path;
    return answer;
  }

  std::string PathOf(const std::string& directory,
                     const std::string& path) const {
    Answer answer = Start(directory, path);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.size, kRoomy);
    return answer.path;
  }

  // Installs the probe at a path of `length` bytes.
  std::string DeepProbe(std::size_t length) const {
    constexpr std::size_t kLongestName = 200;
    std::string folder = folder_.Path();
    std::size_t left = length - folder.size() - std::string("/probe").size();
    while (left > 0) {
      // A name has at least one byte besides its slash.
      const std::size_t taken = left <= kLongestName ? left : kLongestName - 2;
      folder += "/" + std::string(taken - 1, 'd');
      left -= taken;
    }
    fs::create_directories(folder);
    fs::copy_file(EXECUTABLE_PATH_PROBE, folder + "/probe");
    return folder + "/probe";
  }

 private:
  [[noreturn]] static void Execute(const std::string& directory,
                                   const std::string& path,
                                   std::vector<std::string>& arguments) {
    // The name in the argument vector is not the path.
    std::vector<char*> vector = {const_cast<char*>("/misleading/name")};
    for (std::string& argument : arguments) {
      vector.push_back(argument.data());
    }
    vector.push_back(nullptr);
    if (chdir(directory.c_str()) == 0) {
      // A directory with this name is deleted while the program is in it.
      if (fs::path(directory).filename() == "deleted") {
        fs::remove(directory);
      }
      execv(path.c_str(), vector.data());
    }
    _exit(EXIT_FAILURE);
  }

  static std::string ReadAll(int file) {
    std::string text;
    std::array<char, 1024> chunk;
    ssize_t count = 0;
    while ((count = read(file, chunk.data(), chunk.size())) > 0) {
      text.append(chunk.data(), static_cast<std::size_t>(count));
    }
    return text;
  }

  static Answer Parse(const std::string& text) {
    Answer answer;
    int size_end = 0;
    EXPECT_EQ(std::sscanf(text.c_str(), "%d %u%n", &answer.result, &answer.size,
                          &size_end),
              2)
        << text;
    const std::size_t line_end = text.find('\n');
    const auto start = static_cast<std::size_t>(size_end) + 1;
    answer.path = text.substr(start, line_end - start);
    answer.current_path = text.substr(line_end + 1);
    return answer;
  }

  TempDir folder_;
};

TEST_F(ExecutablePath, IsTheAbsolutePathThatTheProgramWasStartedWith) {
  EXPECT_EQ(PathOf("/", Folder() + "/probe"), Folder() + "/probe");
}

TEST_F(ExecutablePath, BecomesAbsoluteWithTheWorkingDirectory) {
  fs::create_directory(Folder() + "/sub");
  EXPECT_EQ(PathOf(Folder(), "probe"), Folder() + "/probe");
  EXPECT_EQ(PathOf(fs::path(Folder()).parent_path(),
                   fs::path(Folder()).filename().string() + "/probe"),
            Folder() + "/probe");
}

TEST_F(ExecutablePath, HasOneSlashAfterTheRootDirectory) {
  EXPECT_EQ(PathOf("/", Folder().substr(1) + "/probe"), Folder() + "/probe");
}

TEST_F(ExecutablePath, KeepsDotsAndDoubleSlashes) {
  fs::create_directory(Folder() + "/sub");
  EXPECT_EQ(PathOf(Folder(), "./probe"), Folder() + "/./probe");
  EXPECT_EQ(PathOf(Folder() + "/sub", "../probe"), Folder() + "/sub/../probe");
  EXPECT_EQ(PathOf("/", Folder() + "/sub/.././/probe"),
            Folder() + "/sub/.././/probe");
}

TEST_F(ExecutablePath, KeepsSymbolicLinks) {
  fs::create_directory(Folder() + "/real");
  InstallProbe("real/tool");
  fs::create_symlink("real/tool", Folder() + "/link");
  fs::create_directory_symlink("real", Folder() + "/folder");
  EXPECT_EQ(PathOf("/", Folder() + "/link"), Folder() + "/link");
  EXPECT_EQ(PathOf(Folder(), "link"), Folder() + "/link");
  EXPECT_EQ(PathOf("/", Folder() + "/folder/tool"), Folder() + "/folder/tool");
}

TEST_F(ExecutablePath, IsRelativeToTheDirectoryAtProcessStart) {
  const Answer answer =
      Start(Folder(), "./probe", {std::to_string(kRoomy), "/"});
  EXPECT_EQ(answer.path, Folder() + "/./probe");
}

TEST_F(ExecutablePath, IsCopiedWithItsTerminatorOrNotAtAll) {
  const std::string path = Folder() + "/probe";
  const std::size_t needed = path.size() + 1;
  const Answer exact = Start("/", path, {std::to_string(needed)});
  EXPECT_EQ(exact.result, 0);
  EXPECT_EQ(exact.path, path);
  for (const std::size_t size :
       {needed - 1, needed - 2, std::size_t{1}, std::size_t{0}}) {
    const Answer answer = Start("/", path, {std::to_string(size)});
    EXPECT_EQ(answer.result, -1);
    EXPECT_EQ(answer.size, needed);
    EXPECT_EQ(answer.path, std::string(size, '#'));
  }
}

TEST_F(ExecutablePath, IsCopiedUpTo1024BytesIntoABufferOf1025) {
  for (const std::size_t length : {1023U, 1024U, 1025U}) {
    const std::string path = DeepProbe(length);
    ASSERT_EQ(path.size(), length);
    const Answer answer = Start("/", path, {"1025"});
    EXPECT_EQ(answer.result, length < 1025 ? 0 : -1);
    EXPECT_EQ(answer.path, length < 1025 ? path : std::string(1025, '#'));
    EXPECT_EQ(answer.current_path,
              length < 1025 ? fs::path(path).parent_path().string() : "");
  }
}

// The longest path that a program can be started with.
TEST_F(ExecutablePath, MayBeAsLongAsTheSystemAllows) {
  const std::string path = DeepProbe(PATH_MAX - 1);
  EXPECT_EQ(PathOf("/", path), path);
}

TEST_F(ExecutablePath, IsTheCallersOwn) {
  std::array<char, 5000> buffer{};
  auto size = static_cast<std::uint32_t>(buffer.size());
  ASSERT_EQ(GetExecutablePath(buffer.data(), &size), 0);
  EXPECT_EQ(buffer[0], '/');
  EXPECT_EQ(fs::path(buffer.data()).filename(), "util_test");
}

TEST_F(ExecutablePath, DeterminesTheCurrentPath) {
  fs::create_directory(Folder() + "/sub");
  EXPECT_EQ(Start(Folder(), "probe").current_path, Folder());
  EXPECT_EQ(Start(Folder() + "/sub", "../probe").current_path,
            Folder() + "/sub/..");
}

#ifdef __linux__

// The start path cannot be made absolute there, so the result is the file's
// path.
TEST_F(ExecutablePath, IsResolvedWhenStartedInADeletedDirectory) {
  fs::create_directory(Folder() + "/deleted");
  EXPECT_EQ(PathOf(Folder() + "/deleted", "../probe"), Folder() + "/probe");
}

TEST_F(ExecutablePath, IsNotResolvedInADeletedDirectoryWhenAbsolute) {
  fs::create_directory(Folder() + "/deleted");
  fs::create_symlink("probe", Folder() + "/link");
  EXPECT_EQ(PathOf(Folder() + "/deleted", Folder() + "/link"),
            Folder() + "/link");
}

TEST_F(ExecutablePath, IsUnknownInADeletedDirectoryWithoutProc) {
  REQUIRE_SANDBOX();
  fs::create_directory(Folder() + "/deleted");
  ASSERT_EQ(mount("none", "/proc", "tmpfs", 0, nullptr), 0);
  const Answer answer = Start(Folder() + "/deleted", "../probe");
  umount("/proc");
  EXPECT_EQ(answer.result, -1);
  EXPECT_EQ(answer.path, std::string(kRoomy, '#'));
  EXPECT_EQ(answer.current_path, "");
}

#endif

}  // namespace
