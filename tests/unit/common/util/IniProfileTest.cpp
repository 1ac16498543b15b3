#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <filesystem>
#include <fstream>
#include <new>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "common/util/IniProfile.h"
#include "tests/support/Allocations.h"
#include "tests/support/Bounded.h"
#include "tests/support/IniProfileOracle.h"
#include "tests/support/TempDir.h"

#ifdef __linux__
#include "tests/support/InterruptedPipe.h"
#endif

namespace {

using namespace std::string_view_literals;

constexpr char kUntouched = '#';
constexpr std::size_t kBufferBytes = 4096;

// A result and the whole buffer, which was filled with `kUntouched`.
struct Reading {
  bool found = false;
  std::array<char, kBufferBytes> buffer;

  friend bool operator==(const Reading&, const Reading&) = default;
  friend void PrintTo(const Reading& reading, std::ostream* stream) {
    const std::string_view all(reading.buffer.data(), reading.buffer.size());
    *stream << (reading.found ? "found " : "not found ")
            << testing::PrintToString(
                   std::string(all.substr(0, all.find(kUntouched))));
  }
};

// `text` with its terminator, and nothing changed after it.
Reading Expected(bool found, std::string_view text) {
  Reading reading;
  reading.found = found;
  reading.buffer.fill(kUntouched);
  text.copy(reading.buffer.data(), text.size());
  reading.buffer.at(text.size()) = '\0';
  return reading;
}

Reading Found(std::string_view value) { return Expected(true, value); }

Reading Default(std::string_view text) { return Expected(false, text); }

Reading Untouched() {
  Reading reading;
  reading.buffer.fill(kUntouched);
  return reading;
}

Reading LookUp(const std::string& file, const std::string& section,
               const std::string& key, const std::string& default_value,
               int size) {
  Reading reading = Untouched();
  reading.found = GetPrivateProfileString(section, key, default_value,
                                          reading.buffer.data(), size, file);
  return reading;
}

class IniProfile : public testing::Test {
 protected:
  std::string Path(const char* name) const { return folder_.Path() / name; }

  // "LEVEL" in "LOG", with the default "ERROR".
  Reading Level(std::string_view content, int size = 1024) const {
    return Read(content, "LOG", "LEVEL", "ERROR", size);
  }

  Reading Read(std::string_view content, const std::string& section,
               const std::string& key,
               const std::string& default_value = "ERROR",
               int size = 1024) const {
    return LookUp(WriteFile(content), section, key, default_value, size);
  }

  std::string WriteFile(std::string_view content) const {
    return folder_.Write("test.ini", content);
  }

 private:
  TempDir folder_;
};

TEST_F(IniProfile, FindsTheKeyInItsSection) {
  EXPECT_EQ(Level("[LOG]\nLEVEL=DEBUG\n"), Found("DEBUG"));
  EXPECT_EQ(Level("[A]\nLEVEL=1\n[LOG]\nX=2\nLEVEL=3\n[B]\nLEVEL=4\n"),
            Found("3"));
}

TEST_F(IniProfile, ReadsALastLineWithoutALineEnd) {
  EXPECT_EQ(Level("[LOG]\nLEVEL=DEBUG"), Found("DEBUG"));
  EXPECT_EQ(Level("[LOG]"), Default("ERROR"));
}

TEST_F(IniProfile, IgnoresTheCaseOfNamesAndKeepsTheCaseOfValues) {
  EXPECT_EQ(Level("[log]\nlevel=Debug\n"), Found("Debug"));
  EXPECT_EQ(Read("[LoG]\nLeVeL=DEBUG\n", "lOg", "lEvEl"), Found("DEBUG"));
  EXPECT_EQ(Read("[AZ]\nAZ=1\n", "az", "az"), Found("1"));
  EXPECT_EQ(Read("[az]\naz=1\n", "AZ", "AZ"), Found("1"));
}

TEST_F(IniProfile, IgnoresTheCaseOfAsciiLettersOnly) {
  EXPECT_EQ(Read("[@[`{]\n@=1\n", "@[`{", "@"), Found("1"));
  EXPECT_EQ(Read("[@]\n@=1\n", "`", "@"), Default("ERROR"));
  EXPECT_EQ(Read("[{]\n@=1\n", "[", "@"), Default("ERROR"));
  EXPECT_EQ(Read("[s]\n\xC3\x89=1\n", "s", "\xC3\xA9"), Default("ERROR"));
  EXPECT_EQ(Read("[\xC3\x89]\nk=1\n", "\xC3\xA9", "k"), Default("ERROR"));
  EXPECT_EQ(Read("[\xC3\x89]\n\xC3\x89=1\n", "\xC3\x89", "\xC3\x89"),
            Found("1"));
}

TEST_F(IniProfile, ComparesNamesWhole) {
  EXPECT_EQ(Level("[LOGS]\nLEVEL=1\n[LO]\nLEVEL=2\n"), Default("ERROR"));
  EXPECT_EQ(Level("[LOG]\nLEVELS=1\nLEVE=2\nXLEVEL=3\n"), Default("ERROR"));
}

TEST_F(IniProfile, CountsASpaceBeforeTheEqualsSignAsPartOfTheKey) {
  EXPECT_EQ(Level("[LOG]\nLEVEL = DEBUG\n"), Default("ERROR"));
  EXPECT_EQ(Level("[LOG]\nLEVEL\t=DEBUG\n"), Default("ERROR"));
}

TEST_F(IniProfile, DoesNotTrimTheKeyArgument) {
  const std::string_view content = "[LOG]\nLEVEL = DEBUG\n";
  EXPECT_EQ(Read(content, "LOG", "LEVEL "), Found(" DEBUG"));
  EXPECT_EQ(Read("[LOG]\nLEVEL=1\n", "LOG", " LEVEL"), Default("ERROR"));
  EXPECT_EQ(Read("[LOG]\nLEVEL=1\n", "LOG", "LEVEL "), Default("ERROR"));
  EXPECT_EQ(Read("[LOG]\n LEVEL=1\n", "LOG", " LEVEL"), Default("ERROR"));
}

TEST_F(IniProfile, TrimsTheLine) {
  EXPECT_EQ(Level("[LOG]\n \t\v\f\rLEVEL=DEBUG \t\v\f\r\n"), Found("DEBUG"));
}

TEST_F(IniProfile, KeepsWhiteSpaceAfterTheEqualsSign) {
  EXPECT_EQ(Level("[LOG]\nLEVEL= 3\n"), Found(" 3"));
  EXPECT_EQ(Level("[LOG]\nLEVEL= 3 =4\n"), Found(" 3 "));
  EXPECT_EQ(Level("[LOG]\nLEVEL=\t3\n"), Found("\t3"));
}

TEST_F(IniProfile, EndsTheValueAtTheNextEqualsSign) {
  EXPECT_EQ(Level("[LOG]\nLEVEL=a=b\n"), Found("a"));
  EXPECT_EQ(Level("[LOG]\nLEVEL=a=\n"), Found("a"));
  EXPECT_EQ(Level("[LOG]\nLEVEL=a==b\n"), Found("a"));
}

TEST_F(IniProfile, FindsAnEmptyValueBetweenEqualsSigns) {
  EXPECT_EQ(Level("[LOG]\nLEVEL==3\n"), Found(""));
  EXPECT_EQ(Level("[LOG]\nLEVEL==\n"), Found(""));
}

TEST_F(IniProfile, SkipsAnEntryWithoutAValue) {
  EXPECT_EQ(Level("[LOG]\nLEVEL=\nLEVEL=3\n"), Found("3"));
  EXPECT_EQ(Level("[LOG]\nLEVEL=  \nLEVEL=3\n"), Found("3"));
  EXPECT_EQ(Level("[LOG]\nLEVEL\nLEVEL=3\n"), Found("3"));
  EXPECT_EQ(Level("[LOG]\nLEVEL=\n"), Default("ERROR"));
}

TEST_F(IniProfile, FindsAnEmptyKey) {
  EXPECT_EQ(Read("[LOG]\n=\n=x\n", "LOG", ""), Found("x"));
  EXPECT_EQ(Read("[LOG]\n==\n", "LOG", ""), Found(""));
}

TEST_F(IniProfile, ReturnsTheFirstEntryOfAKey) {
  EXPECT_EQ(Level("[LOG]\nLEVEL=1\nLEVEL=2\n"), Found("1"));
}

TEST_F(IniProfile, SkipsEmptyLinesAndLinesWithoutAnEqualsSign) {
  EXPECT_EQ(Level("\n \n[LOG]\n\n \t\nwords\nLEVEL=1\n"), Found("1"));
}

TEST_F(IniProfile, HasNoComments) {
  EXPECT_EQ(Read("[LOG]\n;LEVEL=1\n", "LOG", ";LEVEL"), Found("1"));
  EXPECT_EQ(Read("[LOG]\n#LEVEL=1 # x\n", "LOG", "#LEVEL"), Found("1 # x"));
  EXPECT_EQ(Level("; x\n# y\n[LOG]\n;LEVEL=1\nLEVEL=2\n"), Found("2"));
}

TEST_F(IniProfile, IgnoresEntriesBeforeTheFirstHeader) {
  EXPECT_EQ(Level("LEVEL=1\n[LOG]\nLEVEL=2\n"), Found("2"));
  EXPECT_EQ(Read("LEVEL=1\n", "", "LEVEL"), Default("ERROR"));
}

TEST_F(IniProfile, TrimsHeadersAndTheNamesInThem) {
  EXPECT_EQ(Level(" \t[ Log\v] \r\nLEVEL=1\n"), Found("1"));
}

TEST_F(IniProfile, TrimsTheSectionArgument) {
  EXPECT_EQ(Read("[log]\nLEVEL=1\n", " \tLOG\n", "LEVEL"), Found("1"));
  EXPECT_EQ(Read("[ l og ]\nLEVEL=1\n", "L OG", "LEVEL"), Found("1"));
}

TEST_F(IniProfile, FindsASectionWithABlankName) {
  EXPECT_EQ(Read("[ ]\nLEVEL=1\n", "", "LEVEL"), Found("1"));
  EXPECT_EQ(Read("[\t ]\nLEVEL=1\n", "  ", "LEVEL"), Found("1"));
}

TEST_F(IniProfile, DoesNotMistakeALineOfTwoCharactersForAHeader) {
  EXPECT_EQ(Read("[]\nLEVEL=1\n", "", "LEVEL"), Default("ERROR"));
  EXPECT_EQ(Read("[]\nLEVEL=1\n[ ]\nLEVEL=2\n", "", "LEVEL"), Found("2"));
  EXPECT_EQ(Read("[x]\nLEVEL=1\n", "x", "LEVEL"), Found("1"));
}

TEST_F(IniProfile, NeedsBothBrackets) {
  EXPECT_EQ(Level("[LOG\nLEVEL=1\n"), Default("ERROR"));
  EXPECT_EQ(Level("LOG]\nLEVEL=1\n"), Default("ERROR"));
  EXPECT_EQ(Level("[LOG] ;x\nLEVEL=1\n"), Default("ERROR"));
  EXPECT_EQ(Level("x[LOG]\nLEVEL=1\n"), Default("ERROR"));
}

TEST_F(IniProfile, UsesAllTextBetweenTheOuterBracketsAsTheName) {
  EXPECT_EQ(Read("[a]b[c]\nk=1\n", "a]b[c", "k"), Found("1"));
  EXPECT_EQ(Read("[[a]]\nk=1\n", "[a]", "k"), Found("1"));
  EXPECT_EQ(Read("[a=b]\nk=1\n", "a=b", "k"), Found("1"));
}

TEST_F(IniProfile, EndsTheSectionAtAnyLineThatBeginsWithABracket) {
  EXPECT_EQ(Level("[LOG]\n[x]\nLEVEL=1\n"), Default("ERROR"));
  EXPECT_EQ(Level("[LOG]\n[x\nLEVEL=1\n"), Default("ERROR"));
  EXPECT_EQ(Level("[LOG]\n \t[\nLEVEL=1\n"), Default("ERROR"));
  EXPECT_EQ(Level("[LOG]\n[LEVEL=1\nLEVEL=1\n"), Default("ERROR"));
  EXPECT_EQ(Read("[LOG]\n[LEVEL=1\n", "LOG", "[LEVEL"), Default("ERROR"));
  EXPECT_EQ(Level("[LOG]\nx[\n]\nLEVEL=1\n"), Found("1"));
}

TEST_F(IniProfile, SearchesOnlyTheFirstSectionOfAName) {
  EXPECT_EQ(Level("[LOG]\nX=1\n[LOG]\nLEVEL=2\n"), Default("ERROR"));
  EXPECT_EQ(Level("[LOG]\n[LOG]\nLEVEL=2\n"), Default("ERROR"));
  EXPECT_EQ(Level("[LOG]\nX=1\n[A]\n[log]\nLEVEL=2\n"), Default("ERROR"));
}

TEST_F(IniProfile, TreatsAByteOrderMarkAsText) {
  EXPECT_EQ(Level("\xEF\xBB\xBF[LOG]\nLEVEL=1\n"), Default("ERROR"));
  EXPECT_EQ(Level("\xEF\xBB\xBF\n[LOG]\nLEVEL=1\n"), Found("1"));
}

TEST_F(IniProfile, DropsTheCarriageReturn) {
  EXPECT_EQ(Level("[LOG]\r\nLEVEL=DEBUG\r\n"), Found("DEBUG"));
  EXPECT_EQ(Level("[LOG]\r\nLEVEL=\r\nLEVEL=2\r\n"), Found("2"));
  EXPECT_EQ(Level("[LOG]\rLEVEL=1\r"), Default("ERROR"));
}

TEST_F(IniProfile, TreatsHighBytesAsText) {
  EXPECT_EQ(Level("[LOG]\nLEVEL=\xA0\n"), Found("\xA0"));
  EXPECT_EQ(Level("[LOG]\nLEVEL=1 \x85\n"), Found("1 \x85"));
  EXPECT_EQ(Level("\xA0[LOG]\nLEVEL=1\n"), Default("ERROR"));
  EXPECT_EQ(Level("[LOG\xA0]\nLEVEL=1\n"), Default("ERROR"));
  EXPECT_EQ(Level("[LOG]\n\xA0LEVEL=1\n"), Default("ERROR"));
  EXPECT_EQ(Read("[LOG]\nLEVEL=1\n", "LOG\xA0", "LEVEL"), Default("ERROR"));
}

TEST_F(IniProfile, EndsALineAtAZero) {
  EXPECT_EQ(Level("[LOG]\0]\nLEVEL=1\0\x32\nLEVEL=3\n"sv), Found("1"));
  EXPECT_EQ(Level("[LOG]\nLEVEL=1 \0x\n"sv), Found("1"));
  EXPECT_EQ(Level("[LOG]\nLEVEL\0=1\n"sv), Default("ERROR"));
  EXPECT_EQ(Level("[LOG]\nLEVEL=\0x\nLEVEL=4\n"sv), Found("4"));
  EXPECT_EQ(Level("\0[LOG]\nLEVEL=1\n"sv), Default("ERROR"));
}

TEST_F(IniProfile, NeverMatchesANameWithAZeroInside) {
  EXPECT_EQ(Read("[LOG]\nLEVEL=1\n", std::string("LOG\0", 4), "LEVEL"),
            Default("ERROR"));
  EXPECT_EQ(Read("[LOG]\nLEVEL=1\n", "LOG", std::string("LEVEL\0", 6)),
            Default("ERROR"));
}

// A line of `length` bytes that begins with `start`.
std::string LineOf(std::size_t length, const std::string& start) {
  return start + std::string(length - start.size(), 'x');
}

TEST_F(IniProfile, SplitsALongLineIntoPiecesOf2047Bytes) {
  const std::string first = LineOf(2047, "A=");
  const std::string content = "[LOG]\n" + first + LineOf(953, "LEVEL=1") + "\n";
  EXPECT_EQ(Level(content), Found(LineOf(953, "LEVEL=1").substr(6)));
  EXPECT_EQ(Read(content, "LOG", "A", "", 4000), Found(first.substr(2)));
}

TEST_F(IniProfile, SplitsALongLineAfterExactly2047Bytes) {
  for (const std::size_t length : {2046U, 2047U, 2048U}) {
    const std::string content = "[LOG]\n" + LineOf(length, "A=") + "LEVEL=1\n";
    EXPECT_EQ(Level(content), length == 2047 ? Found("1") : Default("ERROR"))
        << length;
  }
}

TEST_F(IniProfile, ReadsALineThatFillsAPieceWithItsLineEnd) {
  for (const std::size_t length : {2045U, 2046U, 2047U, 2048U, 4094U}) {
    const std::string content =
        "[LOG]\n" + LineOf(length, "A=") + "\nLEVEL=1\n";
    EXPECT_EQ(Level(content), Found("1")) << length;
  }
}

TEST_F(IniProfile, FindsAHeaderInTheTailOfALongLine) {
  EXPECT_EQ(Level(std::string(2047, 'x') + "[LOG]\nLEVEL=1\n"), Found("1"));
  EXPECT_EQ(Level(std::string(2046, 'x') + "[LOG]\nLEVEL=1\n"),
            Default("ERROR"));
  EXPECT_EQ(Level("[LOG]\n" + std::string(2047, 'x') + "[x]\nLEVEL=1\n"),
            Default("ERROR"));
}

TEST_F(IniProfile, TrimsEachPieceOfALongLine) {
  const std::string content =
      "[LOG]\n" + LineOf(2045, "A=") + "  " + "  LEVEL=1\n";
  EXPECT_EQ(Level(content), Found("1"));
  EXPECT_EQ(Read(content, "LOG", "A", "", 4000),
            Found(LineOf(2045, "A=").substr(2)));
}

TEST_F(IniProfile, CopiesTheDefaultWhenAnythingIsMissing) {
  EXPECT_EQ(Level(""), Default("ERROR"));
  EXPECT_EQ(Level("[X]\nLEVEL=1\n"), Default("ERROR"));
  EXPECT_EQ(Level("[LOG]\nX=1\n"), Default("ERROR"));
  EXPECT_EQ(Read("", "LOG", "LEVEL", ""), Default(""));
}

TEST_F(IniProfile, CopiesTheDefaultForAMissingFile) {
  EXPECT_EQ(LookUp(Path("none.ini"), "LOG", "LEVEL", "ERROR", 1024),
            Default("ERROR"));
  EXPECT_EQ(LookUp("", "LOG", "LEVEL", "ERROR", 6), Default("ERROR"));
  EXPECT_EQ(LookUp(Path("none.ini"), "LOG", "LEVEL", "ERROR", 5), Untouched());
}

TEST_F(IniProfile, CopiesTheDefaultForADirectory) {
  EXPECT_EQ(RunBounded([&] {
              const Reading reading =
                  LookUp(Path("."), "LOG", "LEVEL", "ERROR", 1024);
              if (reading != Default("ERROR")) {
                _exit(EXIT_FAILURE);
              }
            }),
            Outcome::kReturned);
}

TEST_F(IniProfile, CopiesAValueThatFitsWithItsTerminator) {
  const std::string_view content = "[LOG]\nLEVEL=12345\n";
  EXPECT_EQ(Read(content, "LOG", "LEVEL", "d", 6), Found("12345"));
  EXPECT_EQ(Read(content, "LOG", "LEVEL", "d", 7), Found("12345"));
  EXPECT_EQ(Read(content, "LOG", "LEVEL", "d", 5), Default("d"));
  EXPECT_EQ(Read(content, "LOG", "LEVEL", "d", 4), Default("d"));
  EXPECT_EQ(Read("[LOG]\nLEVEL==\n", "LOG", "LEVEL", "d", 1), Found(""));
}

TEST_F(IniProfile, CopiesADefaultThatFitsWithItsTerminator) {
  EXPECT_EQ(Read("", "LOG", "LEVEL", "12345", 6), Default("12345"));
  EXPECT_EQ(Read("", "LOG", "LEVEL", "12345", 5), Untouched());
  EXPECT_EQ(Read("", "LOG", "LEVEL", "", 1), Default(""));
}

TEST_F(IniProfile, LeavesTheBufferUnchangedWhenNothingFits) {
  EXPECT_EQ(Read("[LOG]\nLEVEL=12345\n", "LOG", "LEVEL", "abcdef", 5),
            Untouched());
}

TEST_F(IniProfile, EndsTheSearchAtAValueThatDoesNotFit) {
  EXPECT_EQ(Read("[LOG]\nLEVEL=12345\nLEVEL=1\n", "LOG", "LEVEL", "d", 5),
            Default("d"));
}

TEST_F(IniProfile, CopiesADefaultWithAZeroWhole) {
  const std::string text("a\0b", 3);
  EXPECT_EQ(Read("", "LOG", "LEVEL", text, 4), Default(text));
  EXPECT_EQ(Read("", "LOG", "LEVEL", text, 3), Untouched());
}

TEST_F(IniProfile, AdmitsEveryTextIntoABufferOfNegativeSize) {
  const std::string value(2000, 'v');
  for (const int size : {-1, -2, -1024, INT_MIN}) {
    EXPECT_EQ(Level("[LOG]\nLEVEL=" + value + "\n", size), Found(value));
    EXPECT_EQ(Level("", size), Default("ERROR"));
  }
}

TEST_F(IniProfile, AdmitsEveryTextIntoTheLargestBuffer) {
  EXPECT_EQ(Level("[LOG]\nLEVEL=1\n", INT_MAX), Found("1"));
}

TEST_F(IniProfile, LeavesABufferOfSizeZeroUnchanged) {
  EXPECT_EQ(Level("[LOG]\nLEVEL=1\n", 0), Untouched());
  EXPECT_EQ(Read("[LOG]\nLEVEL==\n", "LOG", "LEVEL", "", 0), Untouched());
}

TEST_F(IniProfile, CopiesNothingWithoutABuffer) {
  for (const int size : {-1, 0, 1, 1024}) {
    EXPECT_FALSE(GetPrivateProfileString("LOG", "LEVEL", "ERROR", nullptr, size,
                                         Path("none.ini")));
  }
}

// Opening a pipe without a writer would wait.
TEST_F(IniProfile, OpensNoFileWithoutRoomForAResult) {
  const std::string pipe = Path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
  const auto read = [&](char* buffer, int size) {
    GetPrivateProfileString("LOG", "LEVEL", "d", buffer, size, pipe);
  };
  std::array<char, 8> buffer{};
  EXPECT_EQ(RunBounded([&] { read(nullptr, 8); }), Outcome::kReturned);
  EXPECT_EQ(RunBounded([&] { read(buffer.data(), 0); }), Outcome::kReturned);
  EXPECT_EQ(RunBounded([&] {
              alarm(1);
              read(buffer.data(), 8);
            }),
            Outcome::kDied)
      << "with room it does wait";
}

#ifdef __linux__

TEST_F(IniProfile, ReadsOnAfterASignal) {
  const std::string pipe = Path("pipe");
  Reading reading;
  ReadInterrupted(
      pipe, {"", "[X]\n", "[LOG]\n", "X=1\n", "LEVEL=DEBUG\n"},
      [&] { reading = LookUp(pipe, "LOG", "LEVEL", "ERROR", 1024); });
  EXPECT_EQ(reading, Found("DEBUG"));
}

TEST_F(IniProfile, TakesTheRestOfAnInterruptedLineForALine) {
  const std::string pipe = Path("pipe");
  Reading reading;
  ReadInterrupted(pipe, {"x", "[LOG]\nX=", "LEVEL=DEBUG\n"}, [&] {
    reading = LookUp(pipe, "LOG", "LEVEL", "ERROR", 1024);
  });
  EXPECT_EQ(reading, Found("DEBUG"));
}

// Drops what was read of it, even a whole entry that lacks only its line end.
TEST_F(IniProfile, DropsTheBeginningOfAnInterruptedLine) {
  const std::string pipe = Path("pipe");
  Reading reading;
  ReadInterrupted(pipe, {"[LOG]", "\n[LOG]\nLEVEL=1", "\nLEVEL=2\n"}, [&] {
    reading = LookUp(pipe, "LOG", "LEVEL", "ERROR", 1024);
  });
  EXPECT_EQ(reading, Found("2"));
}

#endif

// The descriptor that the next open file gets.
int NextDescriptor() {
  const int descriptor = open("/dev/null", O_RDONLY);
  close(descriptor);
  return descriptor;
}

TEST_F(IniProfile, LeavesNoDescriptorOpen) {
  const int before = NextDescriptor();
  Level("[LOG]\nLEVEL=1\n");
  Level("[LOG]\n[X]\n");
  Level("");
  EXPECT_EQ(NextDescriptor(), before);
}

TEST_F(IniProfile, ClosesTheFileWhenMemoryRunsOut) {
  const std::string file =
      WriteFile("[LOG]\nLEVEL=" + std::string(2000, 'v') + "\n");
  const int before = NextDescriptor();
  g_on_allocation = [](std::size_t bytes) {
    if (bytes > 1500) {
      throw std::bad_alloc();
    }
  };
  EXPECT_THROW(LookUp(file, "LOG", "LEVEL", "ERROR", 4000), std::bad_alloc);
  g_on_allocation = nullptr;
  EXPECT_EQ(NextDescriptor(), before);
}

TEST_F(IniProfile, ReadsTheFileAtEachCall) {
  EXPECT_EQ(Level("[LOG]\nLEVEL=1\n"), Found("1"));
  EXPECT_EQ(Level("[LOG]\nLEVEL=2\n"), Found("2"));
}

TEST_F(IniProfile, ServesSeveralThreadsAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kLookUps = 500;
  std::array<int, kThreads> right{};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      const std::string name = std::to_string(i);
      const std::string value(100, name.front());
      const std::string file = Path((name + ".ini").c_str());
      std::ofstream(file) << "[" + name + "]\n" + name + "=" + value + "\n";
      for (int j = 0; j < kLookUps; ++j) {
        right[static_cast<std::size_t>(i)] +=
            LookUp(file, name, name, "", 1024) == Found(value) ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const int count : right) {
    EXPECT_EQ(count, kLookUps);
  }
}

// Generates files from the pieces of text that matter to the reader.
class FileGenerator {
 public:
  std::string Content() {
    std::string content = Pick({"", "[LOG]\n"});
    for (std::size_t count = Below(12); count > 0; --count) {
      content += Line();
    }
    return content;
  }

  std::string Name() {
    return Pick({"LOG", "LOG", "log", " LOG ", "Log", "LEVEL", "level", "",
                 "LOG ", "[a]", "\xA0", "x"});
  }

  std::string Text() { return std::string(Below(10), 'd'); }

  int Size() {
    constexpr int kRoomy = 4000;
    const std::size_t kind = Below(8);
    if (kind == 0) {
      return -static_cast<int>(Below(3)) * 1000;
    }
    return kind < 4 ? static_cast<int>(Below(12)) : kRoomy;
  }

 private:
  std::size_t Below(std::size_t bound) { return random_() % bound; }

  std::string Pick(std::vector<std::string_view> choice) {
    return std::string(choice[Below(choice.size())]);
  }

  std::string Line() {
    std::string line;
    switch (Below(6)) {
      case 0:
        line = Blanks() + "[" + Blanks() + Name() + Blanks() + "]" + Blanks();
        break;
      case 1:
      case 2:
        line = Blanks() + Name() + Blanks() + "=" + Value();
        break;
      case 3:
        line = LineOf(2030 + Below(40), Name() + Pick({"=", ""}));
        line += Pick({"", Name() + "=9", "[LOG]"});
        break;
      default:
        line = Fragments();
    }
    return line + Pick({"\n", "\n", "\n", "\r\n", "", "\0\n"sv});
  }

  std::string Blanks() { return Pick({"", "", "", " ", "\t", "\v\f\r", "  "}); }

  std::string Value() {
    return Pick({"1", "", " 2", "=", "=3", "a=b", "value", "4 ",
                 "\0"
                 "5"sv,
                 "\xE9"});
  }

  std::string Fragments() {
    std::string text;
    for (std::size_t count = Below(7); count > 0; --count) {
      text += Pick({"[", "]", "=", " ", "a", "LOG", "LEVEL", ";", "\0"sv, "\r",
                    "\n", "\x80", "#", "\xEF\xBB\xBF"});
    }
    return text;
  }

  std::mt19937 random_{20261121};
};

TEST_F(IniProfile, AgreesWithTheOracleOnGeneratedFiles) {
  constexpr int kFiles = 20'000;
  constexpr int kLookUpsPerFile = 3;
  FileGenerator generate;
  int found = 0;
  for (int i = 0; i < kFiles; ++i) {
    const std::string content = generate.Content();
    // Removed first: some file systems flush a file that is truncated and
    // written again.
    std::filesystem::remove(Path("test.ini"));
    const std::string file = WriteFile(content);
    for (int j = 0; j < kLookUpsPerFile; ++j) {
      const std::string section = generate.Name();
      const std::string key = generate.Name();
      const std::string text = generate.Text();
      const int size = generate.Size();
      const std::optional<std::string> value =
          ini_oracle::Find(content, section, key);
      Reading expected = Untouched();
      if (size != 0 && value && ini_oracle::Fits(value->size(), size)) {
        expected = Found(*value);
      } else if (size != 0 && ini_oracle::Fits(text.size(), size)) {
        expected = Default(text);
      }
      ASSERT_EQ(LookUp(file, section, key, text, size), expected)
          << testing::PrintToString(content) << " [" << section << "] " << key
          << ' ' << size;
      found += expected.found ? 1 : 0;
    }
  }
  // Many look-ups must succeed for this to test anything.
  EXPECT_GT(found, kFiles * kLookUpsPerFile / 50);
}

}  // namespace
