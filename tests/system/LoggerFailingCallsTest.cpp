// What goes wrong in the system's calls, made to happen: this program is linked
// with `malloc`, `free`, `write`, `pwrite` and `lseek` of its own.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "logger/LogLine.h"
#include "logger/Logger.h"
#include "tests/support/LogReader.h"
#include "tests/support/TempDir.h"

namespace {

// Those that are let through before one fails; -1 for all.
int g_good_allocations = -1;
int g_allocated = 0;

std::vector<std::string> g_writes;
// What a `write` does instead, if anything.
std::function<ssize_t(int, const void*, std::size_t)> g_on_write;
bool g_pwrite_fails = false;
std::function<void()> g_on_seek;

}  // namespace

extern "C" {

void* __real_malloc(std::size_t bytes);
void __real_free(void* memory);
ssize_t __real_write(int file, const void* data, std::size_t bytes);
ssize_t __real_pwrite(int file, const void* data, std::size_t bytes,
                      off_t offset);
off_t __real_lseek(int file, off_t offset, int whence);

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
  if (whence == SEEK_HOLE && g_on_seek) {
    g_on_seek();
  }
  return __real_lseek(file, offset, whence);
}

}  // extern "C"

namespace {

class Fault : public testing::Test {
 protected:
  Fault() : logger_(dir_.Path(), "x", LOGLEVEL_DEBUG) {
    EXPECT_EQ(logger_.Open(), 0);
    g_writes.clear();
    g_allocated = 0;
  }
  ~Fault() override {
    g_good_allocations = -1;
    g_on_write = nullptr;
    g_pwrite_fails = false;
    g_on_seek = nullptr;
  }

  void Log(const std::string& text) {
    logger_.Log(LOGLEVEL_ERROR, "%s", text.c_str());
  }

  std::string MessageWithout(int good_allocations, const std::string& text) {
    g_good_allocations = good_allocations;
    Log(text);
    g_good_allocations = -1;
    return ReadMessages(log_).at(0);
  }

  // Has a `write` take so many bytes only, once.
  static void CutNextWrite(std::size_t kept) {
    g_on_write = [kept](int file, const void* data, std::size_t) {
      g_on_write = nullptr;
      return __real_write(file, data, kept);
    };
  }

  const TempDir dir_;
  const std::filesystem::path log_ = dir_.Path() / "x.log";
  Logger logger_;
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

TEST_F(Fault, CutsAMessageToBeEscapedWithoutMemory) {
  const std::string text = "a\n" + std::string(1'000, 'x');
  EXPECT_EQ(MessageWithout(0, text), "a\\n" + std::string(510, 'x') + "\\...");
}

TEST_F(Fault, EscapesAShortMessageWholeWithoutMemory) {
  EXPECT_EQ(MessageWithout(0, "a\nb"), "a\\nb");
}

TEST_F(Fault, CutsALongMessageToBeEscapedWithLittleMemory) {
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

TEST_F(Fault, EndsThePartOfALineAtOnce) {
  CutNextWrite(10);
  Log("torn");
  // Another launcher's line.
  Logger other(dir_.Path(), "x", LOGLEVEL_DEBUG);
  ASSERT_EQ(other.Open(), 0);
  other.LogText(LOGLEVEL_ERROR, "whole");
  const auto lines = ReadLines(log_);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].size(), 9U);
  EXPECT_EQ(MessageOf(lines[1]), "whole");
}

TEST_F(Fault, EndsThePartOfALineBeforeTheNextWhenItCannotAtOnce) {
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

TEST_F(Fault, TearsNoLineThatFollowedThePart) {
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

TEST_F(Fault, StartsANewLineBehindOneThatWasTorn) {
  dir_.Write("x.log", "torn");
  Logger other(dir_.Path(), "x", LOGLEVEL_DEBUG);
  ASSERT_EQ(other.Open(), 0);
  other.LogText(LOGLEVEL_ERROR, "whole");
  const auto lines = ReadLines(log_);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], "torn");
  EXPECT_EQ(MessageOf(lines[1]), "whole");
}

TEST_F(Fault, DoesNotMistakeALineBeingWrittenForAFragment) {
  std::ofstream theirs(dir_.Write("x.log", "begun"), std::ios::app);
  g_on_seek = [&] { theirs << " and ended\n" << std::flush; };
  Logger other(dir_.Path(), "x", LOGLEVEL_DEBUG);
  ASSERT_EQ(other.Open(), 0);
  other.LogText(LOGLEVEL_ERROR, "whole");
  const auto lines = ReadLines(log_);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], "begun and ended");
  EXPECT_EQ(MessageOf(lines[1]), "whole");
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

}  // namespace
