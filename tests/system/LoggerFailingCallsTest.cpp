// Calls that fail, or during which something else happens. This program is
// linked with its own version of each function that is wrapped here.

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/Files.h"
#include "tests/support/LoggerFixture.h"

namespace {

// The number of allocations that succeed before all others fail; -1 if none
// fails.
int g_good_allocations = -1;
int g_allocated = 0;

std::vector<std::string> g_writes;
// Replaces `write` while it is set.
std::function<ssize_t(int, const void*, std::size_t)> g_on_write;
bool g_pwrite_fails = false;
std::function<void()> g_on_seek;
int g_seeks = 0;
int g_interrupted_opens = 0;
int g_opens = 0;
bool g_listing_fails = false;
bool g_flock_fails = false;
std::function<void()> g_before_rename;
std::function<void()> g_before_removal;
std::function<void()> g_before_yield;
// In the clock's own unit; 0 for the real clock.
long long g_clock = 0;

}  // namespace

extern "C" {

void* __real_malloc(std::size_t bytes);
void __real_free(void* memory);
ssize_t __real_write(int file, const void* data, std::size_t bytes);
ssize_t __real_pwrite(int file, const void* data, std::size_t bytes,
                      off_t offset);
off_t __real_lseek(int file, off_t offset, int whence);
int __real_openat(int directory, const char* path, int flags, ...);
DIR* __real_fdopendir(int directory);
int __real_flock(int file, int operation);
int __real_unlinkat(int directory, const char* path, int flags);
int __real_sched_yield();
int __real_renameat(int old_directory, const char* old_path, int new_directory,
                    const char* new_path);

// std::chrono::system_clock::now. These declarations rely on one fact: a
// function returns a time_point in the same way as a long long.
#ifdef _LIBCPP_VERSION
#define REAL_NOW __real__ZNSt3__16chrono12system_clock3nowEv
#define WRAP_NOW __wrap__ZNSt3__16chrono12system_clock3nowEv
#else
#define REAL_NOW __real__ZNSt6chrono3_V212system_clock3nowEv
#define WRAP_NOW __wrap__ZNSt6chrono3_V212system_clock3nowEv
#endif
long long REAL_NOW();
long long WRAP_NOW() { return g_clock != 0 ? g_clock : REAL_NOW(); }

void* __wrap_malloc(std::size_t bytes) {
  if (g_good_allocations == 0) {
    return nullptr;
  }
  g_good_allocations -= g_good_allocations > 0 ? 1 : 0;
  ++g_allocated;
  return __real_malloc(bytes);
}

void __wrap_free(void* memory) {
  g_allocated -= memory != nullptr ? 1 : 0;
  __real_free(memory);
}

ssize_t __wrap_write(int file, const void* data, std::size_t bytes) {
  g_writes.emplace_back(static_cast<const char*>(data), bytes);
  return g_on_write ? g_on_write(file, data, bytes)
                    : __real_write(file, data, bytes);
}

ssize_t __wrap_pwrite(int file, const void* data, std::size_t bytes,
                      off_t offset) {
  if (g_pwrite_fails) {
    errno = ENOSPC;
    return -1;
  }
  return __real_pwrite(file, data, bytes, offset);
}

off_t __wrap_lseek(int file, off_t offset, int whence) {
  ++g_seeks;
  if (whence == SEEK_HOLE && g_on_seek) {
    g_on_seek();
  }
  return __real_lseek(file, offset, whence);
}

int __wrap_openat(int directory, const char* path, int flags, ...) {
  if (g_interrupted_opens > 0) {
    --g_interrupted_opens;
    errno = EINTR;
    return -1;
  }
  ++g_opens;
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = va_arg(arguments, unsigned);
  va_end(arguments);
  return __real_openat(directory, path, flags, mode);
}

int __wrap_renameat(int old_directory, const char* old_path, int new_directory,
                    const char* new_path) {
  if (g_before_rename) {
    g_before_rename();
  }
  return __real_renameat(old_directory, old_path, new_directory, new_path);
}

int __wrap_unlinkat(int directory, const char* path, int flags) {
  if (g_before_removal) {
    g_before_removal();
  }
  return __real_unlinkat(directory, path, flags);
}

int __wrap_sched_yield() {
  if (g_before_yield) {
    g_before_yield();
  }
  return __real_sched_yield();
}

DIR* __wrap_fdopendir(int directory) {
  if (g_listing_fails) {
    errno = ENOMEM;
    return nullptr;
  }
  return __real_fdopendir(directory);
}

int __wrap_flock(int file, int operation) {
  if (g_flock_fails) {
    errno = ENOLCK;
    return -1;
  }
  return __real_flock(file, operation);
}

}  // extern "C"

namespace {

namespace fs = std::filesystem;

class Fault : public LoggerFixture {
 protected:
  Fault() {
    g_writes.clear();
    g_allocated = 0;
  }
  ~Fault() override {
    g_good_allocations = -1;
    g_on_write = nullptr;
    g_pwrite_fails = false;
    g_on_seek = nullptr;
    g_interrupted_opens = 0;
    g_listing_fails = false;
    g_flock_fails = false;
    g_clock = 0;
    g_before_rename = nullptr;
    g_before_removal = nullptr;
    g_before_yield = nullptr;
  }

  using LoggerFixture::Log;
  void Log(const std::string& text) { Log(logger_, text); }

  std::string MessageWithout(int good_allocations, const std::string& text) {
    g_good_allocations = good_allocations;
    Log(text);
    g_good_allocations = -1;
    return ReadMessages(log_).at(0);
  }

  // Makes the next `write` take only `kept` bytes.
  static void CutNextWrite(std::size_t kept) {
    g_on_write = [kept](int file, const void* data, std::size_t) {
      g_on_write = nullptr;
      return __real_write(file, data, kept);
    };
  }

  // The messages in all files of the log, by the files' names.
  Messages MessagesInAllFiles() const {
    Messages messages;
    for (const auto& file : FilesIn(logs_)) {
      for (const std::string& message : ReadMessages(file)) {
        messages.push_back(message);
      }
    }
    return messages;
  }

  // In the ticks of the clock.
  static constexpr long long kNow = 1'795'000'000'000'000;
  static constexpr long long kLookAge = LogTime::duration(kMaxLookAge).count();

  const fs::path kept_ = logs_ / "kept";
  Logger& logger_ = Open();
};

TEST_F(Fault, EveryLineIsOneWrite) {
  const std::string long_text(100'000, '\n');
  for (const std::string& text : {std::string("a"), long_text}) {
    Log(text);
    ASSERT_EQ(g_writes.size(), 1U);
    EXPECT_EQ(g_writes[0].find('\n'), g_writes[0].size() - 1);
    g_writes.clear();
  }
}

TEST_F(Fault, ShortLinesTakeNoMemory) {
  Log(std::string(3'900, 'x'));
  EXPECT_EQ(g_allocated, 0);
  EXPECT_EQ(MessageWithout(0, "a").size(), 3'900U);
}

TEST_F(Fault, GivesTheMemoryOfALongMessageBack) {
  Log(std::string(kMaxMessageBytes, 'x'));
  Log(std::string(kMaxMessageBytes, '\n'));
  EXPECT_EQ(g_allocated, 0);
}

TEST_F(Fault, CutsALongMessageWithoutMemory) {
  const std::string text(10'000, 'x');
  const std::string message = MessageWithout(0, text);
  EXPECT_GT(message.size(), 3'900U);
  EXPECT_EQ(message, text.substr(0, message.size() - 4) + "\\...");
}

TEST_F(Fault, WithoutMemoryCutsAMessageThatNeedsEscapes) {
  const std::string text = "a\n" + std::string(1'000, 'x');
  EXPECT_EQ(MessageWithout(0, text), "a\\n" + std::string(510, 'x') + "\\...");
}

TEST_F(Fault, EscapesAShortMessageWholeWithoutMemory) {
  EXPECT_EQ(MessageWithout(0, "a\nb"), "a\\nb");
}

TEST_F(Fault, WithLittleMemoryCutsALongMessageThatNeedsEscapes) {
  const std::string text = "a\n" + std::string(10'000, 'x');
  EXPECT_EQ(MessageWithout(1, text), "a\\n" + std::string(510, 'x') + "\\...");
}

TEST_F(Fault, TriesAgainWhenInterrupted) {
  g_on_write = [](int, const void*, std::size_t) -> ssize_t {
    g_on_write = nullptr;
    errno = EINTR;
    return -1;
  };
  Log("first");
  EXPECT_EQ(ReadMessages(log_), Messages{"first"});
}

TEST_F(Fault, EndsAFragmentAtOnce) {
  CutNextWrite(10);
  Log("torn");
  // Another launcher's line follows.
  Log(Open(), "whole");
  const auto lines = ReadLines(log_);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].size(), 9U);
  EXPECT_EQ(MessageOf(lines[1]), "whole");
}

TEST_F(Fault, EndsAFragmentOfOneByteAtOnce) {
  CutNextWrite(1);
  Log("torn");
  EXPECT_EQ(ReadFile(log_), "\n");
}

TEST_F(Fault, EndsAFragmentBeforeTheNextLineWhenItCannotAtOnce) {
  g_clock = kNow;
  g_pwrite_fails = true;
  CutNextWrite(10);
  Log("torn");
  Log("whole");
  const auto lines = ReadLines(log_);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].size(), 10U);
  EXPECT_EQ(MessageOf(lines[1]), LostReport(1, ENOSPC));
  EXPECT_EQ(MessageOf(lines[2]), "whole");
}

TEST_F(Fault, TearsNoLineThatFollowedTheFragment) {
  g_on_write = [](int file, const void* data, std::size_t) {
    g_on_write = nullptr;
    const ssize_t written = __real_write(file, data, 10);
    __real_write(file, "theirs\n", 7);
    return written;
  };
  Log("torn");
  const auto lines = ReadLines(log_);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].substr(10), "theirs");
}

TEST_F(Fault, DoesNotMistakeALineBeingWrittenForAFragment) {
  std::ofstream theirs(dir_.Write("logs/x.log", "begun"), std::ios::app);
  g_on_seek = [&] { theirs << " and ended\n" << std::flush; };
  Log(Open(), "whole");
  EXPECT_EQ(ReadMessagesAndFragments(log_),
            (Messages{"begun and ended", "whole"}));
}

TEST_F(Fault, CountsEveryLineThatFails) {
  g_on_write = [](int, const void*, std::size_t) -> ssize_t {
    errno = EIO;
    return -1;
  };
  for (int i = 0; i < 3; ++i) {
    Log("lost");
  }
  g_on_write = nullptr;
  Log("whole");
  EXPECT_EQ(ReadMessages(log_), (Messages{LostReport(3, EIO), "whole"}));
}

TEST_F(Fault, WritesNoLineBeforeTheReportOfThoseThatAreLost) {
  for (const int error : {EIO, ENOSPC}) {
    g_on_write = [error](int, const void*, std::size_t) -> ssize_t {
      g_on_write = nullptr;
      errno = error;
      return -1;
    };
    Log("lost");
  }
  Log("whole");
  EXPECT_EQ(ReadMessages(log_), (Messages{LostReport(2, ENOSPC), "whole"}));
}

TEST_F(Fault, OpensTheFileAgainWhenInterrupted) {
  fs::remove(log_);
  g_interrupted_opens = 3;
  Log("whole");
  EXPECT_EQ(g_interrupted_opens, 0);
  EXPECT_EQ(ReadMessages(log_), Messages{"whole"});
}

TEST_F(Fault, OpensANewFileOnce) {
  fs::remove(log_);
  LogNumbers(logger_, 1, 1);
  g_opens = 0;
  LogNumbers(logger_, 2, 10);
  EXPECT_EQ(g_opens, 0);
  EXPECT_EQ(ReadMessages(log_), Numbers(1, 11));
}

// The line feed would take a byte that the disk does not have.
TEST_F(Fault, CountsALineAsLostWhenTheFragmentBeforeItCannotBeEnded) {
  dir_.Write("logs/x.log", "torn");
  g_on_write = [](int, const void*, std::size_t) -> ssize_t {
    errno = ENOSPC;
    return -1;
  };
  Log("lost");
  Log("lost");
  g_on_write = nullptr;
  Log("whole");
  EXPECT_EQ(ReadMessagesAndFragments(log_),
            (Messages{"torn", LostReport(2, ENOSPC), "whole"}));
}

TEST_F(Fault, ReportsAFullDiskForALineThatWasCut) {
  CutNextWrite(10);
  errno = EIO;
  Log("torn");
  EXPECT_EQ(errno, EIO);
  Log("whole");
  EXPECT_EQ(MessageOf(ReadLines(log_).at(1)), LostReport(1, ENOSPC));
}

TEST_F(Fault, ReportsLostLinesAsCritical) {
  CutNextWrite(10);
  Log("torn");
  Log("whole");
  const auto lines = ReadLines(log_);
  EXPECT_EQ(WordsOf(lines.at(1)).level, "CRITICAL");
  EXPECT_EQ(WordsOf(lines.at(2)).level, "ERROR");
}

// The logger has just found another writer's line.
class AfterAnothersLineTest : public Fault {
 protected:
  AfterAnothersLineTest() {
    g_clock = kNow - kLookAge;
    Log("first");
    std::ofstream(log_, std::ios::app) << "theirs\n";
    g_clock = kNow;
    Log("second");
  }

  // Another writer is killed while the next line waits for it.
  void LogAfterAFragment() {
    g_on_write = [](int file, const void* data, std::size_t bytes) {
      g_on_write = nullptr;
      __real_write(file, "fragment", 8);
      return __real_write(file, data, bytes);
    };
    Log("whole");
    EXPECT_EQ(ReadMessagesAndFragments(log_),
              (Messages{"first", "theirs", "second", "fragmen", "whole"}));
  }
};

TEST_F(AfterAnothersLineTest, SeparatesALineFromAFragmentJustBeforeIt) {
  LogAfterAFragment();
}

TEST_F(AfterAnothersLineTest, StillSeparatesLinesALittleLater) {
  g_clock = kNow + LogTime::duration(kMaxOthersAge).count() - 1;
  LogAfterAFragment();
}

TEST_F(AfterAnothersLineTest, SparesLaterLinesTheCheck) {
  g_clock = kNow + LogTime::duration(kMaxOthersAge).count();
  g_seeks = 0;
  Log("third");
  EXPECT_EQ(g_seeks, 0);
}

// Another thread's `write` moves the position that the threads share.
TEST_F(AfterAnothersLineTest, DoesNotTouchALineWhosePlaceIsUnknown) {
  g_on_write = [](int file, const void* data, std::size_t bytes) {
    g_on_write = nullptr;
    const ssize_t written = __real_write(file, data, bytes);
    __real_write(file, "another line\n", 13);
    return written;
  };
  Log("third");
  EXPECT_EQ(ReadMessagesAndFragments(log_),
            (Messages{"first", "theirs", "second", "third", "another line"}));
}

TEST_F(Fault, FillsTheLogFurtherWhileItsDirectoryCannotBeListed) {
  Logger& logger = Open({1, 3});
  g_listing_fails = true;
  LogNumbers(logger, 1, 3);
  EXPECT_EQ(ReadMessages(log_), Numbers(1, 3));
  g_listing_fails = false;
  LogNumbers(logger, 4, 1);
  EXPECT_EQ(ReadMessages(Old(1)), Numbers(1, 3));
  EXPECT_EQ(ReadMessages(log_), Numbers(4, 1));
}

TEST_F(Fault, RotatesEvenIfTheLockCanNeverBeTaken) {
  constexpr int kOldFiles = 2;
  g_flock_fails = true;
  LogNumbers(Open({1, kOldFiles}), 1, 5);
  EXPECT_EQ(MessagesInAllFiles(), Numbers(2, 4));
}

TEST_F(Fault, LosesNoFileWhenTheClockStandsStill) {
  g_flock_fails = true;
  g_clock = kNow;
  LogNumbers(Open({1, 10}), 1, 5);
  EXPECT_EQ(MessagesInAllFiles(), Numbers(1, 5));
}

TEST_F(Fault, EndsNoFragmentInAFileThatTookTheLogsPlace) {
  const std::string theirs(100, '.');
  g_on_write = [&](int file, const void* data, std::size_t) {
    g_on_write = nullptr;
    const ssize_t written = __real_write(file, data, 10);
    fs::rename(log_, kept_);
    dir_.Write("logs/x.log", theirs + "\n");
    return written;
  };
  Log("torn");
  EXPECT_EQ(ReadLines(log_), Messages{theirs});
}

TEST_F(Fault, LosesNoLineWhenTheFullFileIsRemovedBeforeItIsRenamed) {
  Logger& logger = Open({1, 3});
  LogNumbers(logger, 1, 1);
  g_before_rename = [&] { fs::remove(log_); };
  LogNumbers(logger, 2, 1);
  EXPECT_EQ(ReadMessages(log_), Numbers(2, 1));
}

// This process rotates in the middle of another process's rotation.
class LockedRotationTest : public Fault {
 protected:
  static constexpr LogLimits kLimits{1, 3};

  const HeldLock lock_{logs_};
};

TEST_F(LockedRotationTest, GetsSomeChancesToFinish) {
  Logger& logger = Open(kLimits);
  LogNumbers(logger, 1, 1);
  int chances = 0;
  g_before_yield = [&] {
    if (++chances == 5) {
      fs::rename(log_, Old(1));
      dir_.Write("logs/x.log", "");
    }
  };
  g_before_rename = [] { ADD_FAILURE() << "the file is renamed once more"; };
  LogNumbers(logger, 2, 1);
  EXPECT_EQ(chances, 5);
  EXPECT_EQ(ReadMessages(log_), Numbers(2, 1));
}

TEST_F(LockedRotationTest, IsNotWaitedFor) {
  constexpr int kManyChances = 100;
  int chances = 0;
  g_before_yield = [&] { ++chances; };
  LogNumbers(Open(kLimits), 1, 2);
  EXPECT_LT(chances, kManyChances);
  EXPECT_EQ(ReadMessages(log_), Numbers(2, 1));
}

TEST_F(LockedRotationTest, RemovesNoSecondFileWhenBothRemoveTheSameOne) {
  for (int number = 1; number <= kLimits.old_files; ++number) {
    std::ofstream(Old(number)) << "old\n";
  }
  Logger& logger = Open(kLimits);
  LogNumbers(logger, 1, 2);
  g_before_removal = [this] { fs::remove(Old(kLimits.old_files)); };
  LogNumbers(logger, 3, 1);
  EXPECT_FALSE(fs::exists(Old(3)));
  EXPECT_TRUE(fs::exists(Old(2)));
}

// The child inherits the directory's descriptor, and with it the lock.
TEST_F(Fault, ReleasesTheLockAfterARotationEvenIfAChildIsForkedDuringIt) {
  Logger& logger = Open({1, 3});
  LogNumbers(logger, 1, 1);
  pid_t child = -1;
  g_before_rename = [&child] {
    g_before_rename = nullptr;
    child = fork();
    if (child == 0) {
      pause();
    }
  };
  LogNumbers(logger, 2, 2);
  EXPECT_EQ(ReadMessages(Old(2)), Numbers(1, 1));
  EXPECT_EQ(ReadMessages(Old(1)), Numbers(2, 1));
  ASSERT_GT(child, 0);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

// Another launcher is stopped while it holds the lock, before one of the four
// renames of its rotation.
class StoppedRotationTest : public Fault,
                            public testing::WithParamInterface<int> {};

TEST_P(StoppedRotationTest, DelaysNoOtherWriterAndIsFinishedLater) {
  constexpr LogLimits kLimits{1, 3};
  Logger& logger = Open(kLimits);
  LogNumbers(logger, 1, 3);
  const pid_t child = fork();
  if (child == 0) {
    g_before_rename = [renames = GetParam()]() mutable {
      if (--renames == 0) {
        raise(SIGSTOP);
      }
    };
    LogNumbers(logger, 4, 1);
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, WUNTRACED), child);
  EXPECT_TRUE(WIFSTOPPED(status)) << status;
  for (int line = 5; line <= 14; ++line) {
    LogNumbers(logger, line, 1);
    EXPECT_EQ(ReadMessages(log_), Numbers(line, 1));
    EXPECT_LE(FilesIn(logs_).size(), kLimits.old_files + 2U);
  }
  kill(child, SIGCONT);
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  LogNumbers(logger, 15, 1);
  EXPECT_EQ(MessagesInAllFiles(), (Messages{"4", "14", "13", "15"}));
}

INSTANTIATE_TEST_SUITE_P(BeforeRename, StoppedRotationTest,
                         testing::Range(1, 5));

// The log is renamed just after its logger has looked at the path. The clock
// moves only when a test sets it.
class LookTest : public Fault {
 protected:
  LookTest() {
    g_clock = kNow - kLookAge;
    LogNumbers(logger_, 1, 1);
    g_clock = kNow;
    LogNumbers(logger_, 2, 1);
    fs::rename(log_, kept_);
  }
};

TEST_F(LookTest, IsRepeatedWhenItIsTooOld) {
  g_clock = kNow + kLookAge - 1;
  LogNumbers(logger_, 3, 1);
  g_clock = kNow + kLookAge;
  LogNumbers(logger_, 4, 1);
  EXPECT_EQ(ReadMessages(kept_), Numbers(1, 3));
  EXPECT_EQ(ReadMessages(log_), Numbers(4, 1));
}

TEST_F(LookTest, IsRepeatedWhenTheClockIsSetBack) {
  g_clock = kNow - 1;
  LogNumbers(logger_, 3, 1);
  EXPECT_EQ(ReadMessages(log_), Numbers(3, 1));
}

TEST_F(LookTest, IsRepeatedAfterManyBytesOfTheLoggersOwn) {
  // With the second line, one byte too few to make the logger look again.
  const std::size_t bytes = std::size_t{kMaxLookGrowth} - 1 - LineBytes();
  const std::string text(bytes - (LineBytes() - 1), '=');
  Log(text);
  LogNumbers(logger_, 3, 2);
  EXPECT_EQ(ReadMessages(kept_), (Messages{"1", "2", text, "3"}));
  EXPECT_EQ(ReadMessages(log_), Numbers(4, 1));
}

}  // namespace
