#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <utility>

#include "logger/Descriptor.h"
#include "tests/support/AnotherUser.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TempDir.h"

namespace {

using Use = SharedDescriptor::Use;

Descriptor OpenNull() { return Descriptor(open("/dev/null", O_WRONLY)); }

bool IsOpen(int number) { return fcntl(number, F_GETFD) >= 0; }

class SharedDescriptorTest : public testing::Test {
 protected:
  // Returns the number of the descriptor that it puts there.
  int Put(off_t bytes) {
    Descriptor descriptor = OpenNull();
    const int number = descriptor.number();
    EXPECT_TRUE(shared_.Replace(std::move(descriptor), {1, 2, bytes, 1}));
    return number;
  }

  SharedDescriptor shared_;
};

TEST_F(SharedDescriptorTest, IsUsedByManyAtOnce) {
  const int number = Put(3);
  const Use one(&shared_);
  const Use other(&shared_);
  ASSERT_TRUE(one.IsGranted());
  ASSERT_TRUE(other.IsGranted());
  EXPECT_EQ(one.number(), number);
  EXPECT_EQ(other.number(), number);
  EXPECT_EQ(one.state().bytes, 3);
}

TEST_F(SharedDescriptorTest, ClosesTheOneThatItReplaces) {
  const int first = Put(1);
  const int second = Put(2);
  EXPECT_FALSE(IsOpen(first));
  EXPECT_TRUE(IsOpen(second));
  EXPECT_EQ(Use(&shared_).number(), second);
  EXPECT_EQ(Use(&shared_).state().bytes, 2);
}

TEST_F(SharedDescriptorTest, IsNotReplacedWhileItIsUsed) {
  const int number = Put(1);
  auto one = std::make_unique<Use>(&shared_);
  auto other = std::make_unique<Use>(&shared_);
  EXPECT_FALSE(shared_.Replace(OpenNull(), {}));
  one.reset();
  EXPECT_FALSE(shared_.Replace(OpenNull(), {}));
  EXPECT_EQ(other->number(), number);
  EXPECT_TRUE(IsOpen(number));
  other.reset();
  EXPECT_TRUE(shared_.Replace(OpenNull(), {}));
}

namespace fs = std::filesystem;

// A log in a directory that everyone can write to.
class OpenLogTest : public testing::Test {
 protected:
  OpenLogTest() {
    EXPECT_EQ(chmod(dir_.Path().c_str(), 0755), 0);
    EXPECT_EQ(chmod(dir_.Path().parent_path().c_str(), 01777), 0);
    fs::create_directories(log_.parent_path());
    EXPECT_EQ(chmod(log_.parent_path().c_str(), 0777), 0);
  }

  // Runs `body` as another user. Needs root.
  template <class Body>
  static void AsOtherUser(Body body) {
    EXPECT_EQ(InForkedChild([&body] {
                EXPECT_EQ(setuid(kAnotherUser), 0);
                body();
                return HasFailure() ? 1 : 0;
              }),
              0);
  }

  static mode_t Mode(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 07777U;
  }

  // The errno value with which OpenLog refuses the log; 0 when it opens it.
  int Error() const {
    errno = 0;
    return OpenLog(log_.c_str()).IsOpen() ? 0 : errno;
  }

  const TempDir dir_;
  const fs::path log_ = dir_.Path() / "logs" / "x.log";
  const fs::path target_ = dir_.Path() / "target";
};

TEST_F(OpenLogTest, MakesAFileForTheUserAlone) {
  const mode_t before = umask(0);
  EXPECT_EQ(Error(), 0);
  umask(before);
  EXPECT_EQ(Mode(log_), 0600U);
}

TEST_F(OpenLogTest, TakesAllOtherPermissionsAway) {
  for (const mode_t mode :
       std::initializer_list<mode_t>{0644, 0620, 0777, 04600, 0700, 0601}) {
    std::ofstream(log_) << "line\n";
    ASSERT_EQ(chmod(log_.c_str(), mode), 0);
    EXPECT_EQ(Error(), 0);
    EXPECT_EQ(Mode(log_), 0600U) << mode;
  }
  EXPECT_EQ(ReadFile(log_), "line\n");
}

TEST_F(OpenLogTest, RefusesAFileOfAnotherUser) {
  REQUIRE_ANOTHER_USER();
  AsOtherUser([&] {
    std::ofstream(log_) << "theirs\n";
    EXPECT_EQ(chmod(log_.c_str(), 0666), 0);
  });
  EXPECT_EQ(Error(), EPERM);
  EXPECT_EQ(ReadFile(log_), "theirs\n");
  EXPECT_EQ(Mode(log_), 0666U);
}

TEST_F(OpenLogTest, RefusesALinkOfAnotherUser) {
  REQUIRE_ANOTHER_USER();
  std::ofstream(target_) << "ours\n";
  chmod(target_.c_str(), 0640);
  AsOtherUser([&] { fs::create_symlink(target_, log_); });
  EXPECT_EQ(Error(), EPERM);
  EXPECT_EQ(Mode(target_), 0640U);
}

TEST_F(OpenLogTest, MakesNoFileForALinkOfAnotherUser) {
  REQUIRE_ANOTHER_USER();
  AsOtherUser([&] { fs::create_symlink(target_, log_); });
  EXPECT_EQ(Error(), EPERM);
  EXPECT_FALSE(fs::exists(target_));
}

TEST_F(OpenLogTest, FollowsTheUsersOwnLink) {
  fs::create_symlink(target_, log_);
  EXPECT_EQ(Error(), 0);
  EXPECT_EQ(Mode(target_), 0600U);
  EXPECT_EQ(Error(), 0);
}

TEST_F(OpenLogTest, FollowsALinkOfRoot) {
  REQUIRE_ANOTHER_USER();
  std::ofstream(target_) << "";
  EXPECT_EQ(chown(target_.c_str(), kAnotherUser, kAnotherUser), 0);
  fs::create_symlink(target_, log_);
  AsOtherUser([&] { EXPECT_EQ(Error(), 0); });
}

TEST_F(OpenLogTest, RefusesTheUsersOwnLinkToAFileOfAnotherUser) {
  REQUIRE_ANOTHER_USER();
  std::ofstream(target_) << "";
  EXPECT_EQ(chown(target_.c_str(), kAnotherUser, kAnotherUser), 0);
  fs::create_symlink(target_, log_);
  EXPECT_EQ(Error(), EPERM);
}

TEST_F(OpenLogTest, RefusesAPipe) {
  ASSERT_EQ(mkfifo(log_.c_str(), 0600), 0);
  EXPECT_EQ(Error(), EPERM);
}

TEST_F(OpenLogTest, RefusesADevice) {
  fs::create_symlink("/dev/null", log_);
  EXPECT_EQ(Error(), EPERM);
  fs::remove(log_);
  fs::create_symlink("/dev/zero", log_);
  EXPECT_EQ(Error(), EPERM);
}

TEST_F(OpenLogTest, RefusesADirectory) {
  fs::create_directory(log_);
  EXPECT_EQ(Error(), EISDIR);
}

TEST_F(OpenLogTest, FailsWithoutTheDirectory) {
  fs::remove_all(log_.parent_path());
  EXPECT_EQ(Error(), ENOENT);
}

TEST(DescriptorTest, KeepsErrnoWhenItIsClosed) {
  {
    const Descriptor null = OpenNull();
    errno = EBADMSG;
  }
  EXPECT_EQ(errno, EBADMSG);
}

TEST(DescriptorTest, IsNeverAStandardStream) {
  for (int number = 0; number <= STDERR_FILENO; ++number) {
    EXPECT_EQ(InForkedChild([number] {
                close(number);
                const Descriptor null = Open(AT_FDCWD, "/dev/null", O_RDONLY);
                return null.number() > STDERR_FILENO && !IsOpen(number) &&
                               fcntl(null.number(), F_GETFD) == FD_CLOEXEC
                           ? 0
                           : 1;
              }),
              0)
        << number;
  }
}

TEST(FileState, DistinguishesFilesByDeviceAndInode) {
  const FileState file{1, 2, 3, 4};
  EXPECT_TRUE(file.IsSameFile({1, 2, 5, 6}));
  EXPECT_FALSE(file.IsSameFile({7, 2, 3, 4}));
  EXPECT_FALSE(file.IsSameFile({1, 7, 3, 4}));
}

}  // namespace
