#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/AnotherUser.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/TempDir.h"
#include "tools/check/ProgramFile.h"

namespace {

constexpr int kNotExecuted = 99;
constexpr int kNotFoundByEnv = 127;

// The end of a process that executes `path`: its exit status, minus the
// number of the signal that ends it, or `kNotExecuted`.
int Execute(const std::string& path) {
  return InForkedChild([&] {
    const rlimit no_dump{0, 0};
    setrlimit(RLIMIT_CORE, &no_dump);
    if (freopen("/dev/null", "w", stderr) == nullptr) return kNotExecuted;
    char* vector[] = {const_cast<char*>(path.c_str()), nullptr};
    execv(path.c_str(), vector);
    return kNotExecuted;
  });
}

class ProgramFile : public testing::Test {
 protected:
  std::string Executable(const std::string& name, std::string_view content) {
    const std::string path = directory_.Write(name, content);
    chmod(path.c_str(), 0755);
    return path;
  }

  // The rule for `path`, "" for none.
  static std::string IdOf(const std::string& path) {
    const auto problem = FindProgramProblem(path);
    return problem ? problem->rule->id : "";
  }

  // The system must execute the file if and only if there is no finding, or the
  // rule says that the program starts.
  static void ExpectId(const std::string& path, const std::string& id) {
    EXPECT_EQ(IdOf(path), id) << path;
    const int status = Execute(path);
    if (id.empty()) {
      EXPECT_EQ(status, 0) << path;
    } else if (id == "program-truncated" || id == "program-library") {
      EXPECT_TRUE(status == -SIGSEGV || status == -SIGBUS) << path << status;
    } else if (id == "program-env") {
      EXPECT_EQ(status, kNotFoundByEnv) << path;
    } else {
      EXPECT_EQ(status, kNotExecuted) << path;
    }
  }

  // The same for an executable file with this content.
  void Expect(std::string_view content, const std::string& id) {
    ExpectId(Executable("program" + std::to_string(++count_), content), id);
  }

  static ProgramProblem ProblemOf(const std::string& path) {
    return FindProgramProblem(path).value_or(
        ProgramProblem{"program-format", "no problem at all", ""});
  }

  TempDir directory_;
  int count_ = 0;
};

TEST_F(ProgramFile, HasNoProblemWhenItRuns) {
  ExpectId("/bin/true", "");
  Expect("#!/bin/true", "");
  Expect("#! \t /bin/true \t \nx", "");
  Expect("#!/bin/true " + std::string(1000, 'x') + "\n", "");
  Expect("#!/usr/bin/env true\n", "");
  Expect("#!/usr/bin/env true \t \n", "");
}

TEST_F(ProgramFile, MustExist) {
  ExpectId(directory_.Path() / "none", "program-not-found");
  const std::string file = directory_.Write("file", "x");
  ExpectId(file + "/below", "program-not-found");
  EXPECT_EQ(ProblemOf(file + "/below").text, "does not exist");
  ExpectId("/" + std::string(5000, 'x'), "program-not-found");
  EXPECT_TRUE(ProblemOf("/" + std::string(5000, 'x'))
                  .text.starts_with("cannot be reached: "));
}

TEST_F(ProgramFile, MustNotBeADirectory) {
  ExpectId(directory_.Path(), "program-directory");
}

TEST_F(ProgramFile, MustBeExecutable) {
  ExpectId(directory_.Write("plain", "#!/bin/true\n"),
           "program-not-executable");
  const std::string fifo = directory_.Path() / "fifo";
  mkfifo(fifo.c_str(), 0777);
  ExpectId(fifo, "program-not-executable");
}

TEST_F(ProgramFile, MustBeAProgram) {
  Expect("echo hello\n", "program-format");
  Expect("", "program-format");
  EXPECT_EQ(ProblemOf(Executable("empty", "")).text, "is an empty file");
  Expect("#", "program-format");
  Expect("#x", "program-format");
}

TEST_F(ProgramFile, MustHaveAnInterpreter) {
  Expect("#!/no/such/shell\n", "program-interpreter");
  Expect("#!\n", "program-interpreter");
  Expect("#!", "program-interpreter");
  Expect("#! \t ", "program-interpreter");
  Expect("#!/etc -x\n", "program-interpreter");
  EXPECT_NE(ProblemOf(Executable("bare", "#!\n")).text.find("without"),
            std::string::npos);
  EXPECT_NE(ProblemOf(Executable("bad", "#!/no/such -x\n"))
                .text.find("interpreter /no/such, which does not exist"),
            std::string::npos);
}

TEST_F(ProgramFile, MayHaveAFirstLineOfLimitedLength) {
#ifdef __APPLE__
  GTEST_SKIP() << "the limit is another here";
#endif
  const auto line = [](std::size_t bytes) {
    const std::string end = "bin/true";
    const std::string start = "#!";
    return start + std::string(bytes - start.size() - end.size(), '/') + end;
  };
  Expect(line(kScriptLineBytes - 1) + "\n", "");
  Expect(line(kScriptLineBytes) + "\n", "program-interpreter");
  Expect(line(kScriptLineBytes - 1), "");
  Expect(line(kScriptLineBytes - 1) + std::string(300, ' '), "");
}

TEST_F(ProgramFile, MustNotHaveACarriageReturnAfterTheInterpreter) {
  const std::string dos = "#!/bin/sh\r\necho\r\n";
  Expect(dos, "program-interpreter");
  EXPECT_NE(ProblemOf(Executable("dos", dos)).advice.find("carriage"),
            std::string::npos);
}

TEST_F(ProgramFile, MustHaveAnInterpreterThatRuns) {
  const std::string text = Executable("text", "hello\n");
  Expect("#!" + text + "\n", "program-interpreter");
  Expect("#!" + directory_.Write("plain", "#!/bin/sh\n") + "\n",
         "program-interpreter");
}

TEST_F(ProgramFile, MayNeedOnlyAFewScriptsInARow) {
  std::string path = "/bin/true";
  for (int scripts = 1; scripts <= kMostScripts; ++scripts) {
    path = Executable("script" + std::to_string(scripts), "#!" + path + "\n");
  }
  ExpectId(path, "");
  ExpectId(Executable("last", "#!" + path + "\n"), "program-interpreter");
  const std::string loop = directory_.Path() / "loop";
  ExpectId(Executable("loop", "#!" + loop + "\n"), "program-interpreter");
}

TEST_F(ProgramFile, MustBeFoundByEnv) {
  Expect("#!/usr/bin/env no-such-program\n", "program-env");
  Expect("#!/usr/bin/env /no/such\n", "program-env");
  Expect("#!/usr/bin/env -S A=b no-such-program -x\n", "program-env");
  Expect("#!/usr/bin/env -S A=b true -x\n", "");
  Expect("#!/usr/bin/env /bin/true\n", "");
  Expect("#!/usr/bin/env true\r\n", "program-env");
  EXPECT_NE(ProblemOf(Executable("dos", "#!/usr/bin/env true\r\n"))
                .advice.find("carriage"),
            std::string::npos);
  EXPECT_EQ(ProblemOf(Executable("none", "#!/usr/bin/env nonesuch\n")).advice,
            "");
}

// Such a script is not executed here, because it would never end.
TEST_F(ProgramFile, MustNotBeExecutedByEnvForever) {
  EXPECT_EQ(IdOf(Executable("endless", "#!/usr/bin/env\n")),
            "program-env-loop");
  EXPECT_EQ(IdOf(Executable("other", "#!/usr/bin/env -i\n")), "");
}

TEST_F(ProgramFile, GetsEnvItsArgumentsInOnePiece) {
#ifdef __APPLE__
  GTEST_SKIP() << "here the system splits them";
#endif
  Expect("#!/usr/bin/env true -x\n", "program-env");
  EXPECT_NE(ProblemOf(Executable("two", "#!/usr/bin/env true -x\n"))
                .advice.find("\"-S\""),
            std::string::npos);
}

#ifndef __APPLE__

// A real program whose bytes at `offset` are `bytes`.
std::string Changed(std::size_t offset, std::string_view bytes) {
  return ReadFile("/bin/true").replace(offset, bytes.size(), bytes);
}

// Where the parts of an ELF header of 64 bits are.
constexpr std::size_t kTypeOffset = 16;
constexpr std::size_t kMachineOffset = 18;
constexpr std::size_t kEntryOffset = 24;
constexpr std::size_t kSegmentBytesOffset = 54;
constexpr std::size_t kSegmentCountOffset = 56;
constexpr std::size_t kHeaderBytes = 64;
// Enough for the header and all segments' headers.
constexpr std::size_t kHeadersBytes = 1024;

TEST_F(ProgramFile, MustBeForThisProcessor) {
  Expect(Changed(kMachineOffset, std::string_view("\x16\0", 2)),
         "program-machine");
}

TEST_F(ProgramFile, MustBeForThisSystem) {
  for (const std::string_view magic :
       {"MZ", "\xCA\xFE\xBA\xBE", "\xCF\xFA\xED\xFE", "\xCE\xFA\xED\xFE"}) {
    Expect(std::string(magic) + std::string(500, '\0'), "program-machine");
  }
  Expect(std::string_view("\0asm\1\0\0\0", 8), "program-machine");
}

TEST_F(ProgramFile, MustBeOfAKindThatRuns) {
  Expect(Changed(kTypeOffset, std::string_view("\1\0", 2)), "program-format");
  Expect(Changed(kTypeOffset, std::string_view("\4\0", 2)), "program-format");
  Expect(Changed(kSegmentBytesOffset, std::string_view("\1\0", 2)),
         "program-format");
  Expect(Changed(kSegmentCountOffset, std::string_view("\0\0", 2)),
         "program-format");
}

TEST_F(ProgramFile, MustBeWhole) {
  const std::string program = ReadFile("/bin/true");
  for (const std::size_t bytes :
       {std::size_t{4}, std::size_t{20}, kHeaderBytes - 1, kHeaderBytes,
        kHeaderBytes + 100}) {
    Expect(program.substr(0, bytes), "program-format");
  }
  Expect(program.substr(0, kHeadersBytes), "program-truncated");
  Expect(program.substr(0, program.size() / 2), "program-truncated");
}

TEST_F(ProgramFile, MustHaveItsLoader) {
  const std::string program = ReadFile("/bin/true");
  const std::string name = "/lib";
  const std::size_t loader = program.find(name, kHeaderBytes);
  const std::string missing = Changed(loader, "/non");
  Expect(missing, "program-loader");
  EXPECT_NE(ProblemOf(Executable("missing", missing))
                .text.find("needs the loader /non"),
            std::string::npos);
  using namespace std::string_view_literals;
  Expect(Changed(loader, "/etc/passwd\0"sv), "program-loader");
  const std::string script = "/tmp/" + std::to_string(getpid());
  ASSERT_EQ(rename(Executable("l", "#!/bin/true\n").c_str(), script.c_str()),
            0);
  Expect(Changed(loader, script + '\0'), "program-loader");
  unlink(script.c_str());
  const std::size_t end = program.find('\0', loader);
  Expect(Changed(end, "x"), "program-format");
}

TEST_F(ProgramFile, MustNotBeASharedLibrary) {
  const std::string library = TEST_LIBRARY;
  ExpectId(library, "program-library");
  EXPECT_EQ(ReadFile(library).substr(kEntryOffset, 8), std::string(8, '\0'));
}

#endif

TEST_F(ProgramFile, IsAWarningWhenItIsExecutableButNotReadable) {
  REQUIRE_ANOTHER_USER();
  chmod(directory_.Path().c_str(), 0755);
  const std::string path = Executable("secret", "hello\n");
  chmod(path.c_str(), 0111);
  EXPECT_EQ(IdOf(path), "program-format");
  EXPECT_EQ(InForkedChild([&] {
              return chdir(directory_.Path().c_str()) == 0 &&
                             setuid(kAnotherUser) == 0 &&
                             IdOf("secret") == "program-unreadable"
                         ? 0
                         : 1;
            }),
            0);
}

TEST_F(ProgramFile, IsAdvisedOnTheUsualSlips) {
  Executable("found", "#!/bin/sh\n");
  const std::string old_path = getenv("PATH");
  setenv("PATH", (":" + directory_.Path().string() + ":" + old_path).c_str(),
         1);
  setenv("HOME", directory_.Path().c_str(), 1);
  const auto advice = [](const char* path) { return ProblemOf(path).advice; };
  EXPECT_EQ(advice("found"), "write \"" +
                                 std::string(directory_.Path() / "found") +
                                 "\"; the launcher does not search PATH");
  EXPECT_EQ(advice("nowhere"),
            "write the program's absolute path; the launcher does not search "
            "PATH");
  const std::string home = directory_.Path();
  for (const char* const path : {"~/x", "$HOME/x", "${HOME}/x"}) {
    EXPECT_EQ(advice(path),
              "write \"" + home + "/x\"; no shell replaces ~ or variables");
  }
  EXPECT_EQ(advice("/$OTHER/x"),
            "write the absolute path; no shell replaces ~ or variables");
  EXPECT_EQ(advice("/bin/sh -c"),
            "write \"/bin/sh\", and the rest as arguments in \"args\"");
  EXPECT_EQ(advice("~/\x1b"),
            "write \"" + home + "/\\x1b\"; no shell replaces ~ or variables");
  EXPECT_EQ(advice("/no/such file"), "");
}

}  // namespace
