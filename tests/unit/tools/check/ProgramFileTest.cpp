#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/TempDir.h"
#include "tools/check/ProgramFile.h"

namespace {

class ProgramFile : public testing::Test {
 protected:
  // The id of what is wrong with an executable file with this content.
  std::string Id(const std::string& content) {
    return IdOf(Executable("program", content));
  }

  std::string Executable(const std::string& name, const std::string& content) {
    const std::string path = directory_.Write(name, content);
    chmod(path.c_str(), 0755);
    return path;
  }

  static std::string IdOf(const std::string& path) {
    const auto problem = FindProgramProblem(path);
    return problem ? problem->rule->id : "";
  }

  TempDir directory_;
};

TEST_F(ProgramFile, FindsNothingWrongWithPrograms) {
  EXPECT_EQ(IdOf("/bin/sh"), "");
  EXPECT_EQ(Id("#!/bin/sh\necho\n"), "");
  EXPECT_EQ(Id("#! /usr/bin/env sh"), "");
}

TEST_F(ProgramFile, TellsAMissingFile) {
  EXPECT_EQ(IdOf(directory_.Path() / "none"), "program-not-found");
  EXPECT_EQ(IdOf(directory_.Write("file", "x") + "/below"),
            "program-not-found");
}

TEST_F(ProgramFile, TellsADirectory) {
  EXPECT_EQ(IdOf(directory_.Path()), "program-directory");
}

TEST_F(ProgramFile, TellsAFileThatIsNotExecutable) {
  EXPECT_EQ(IdOf(directory_.Write("plain", "#!/bin/sh\n")),
            "program-not-executable");
}

TEST_F(ProgramFile, TellsAMissingInterpreter) {
  EXPECT_EQ(Id("#!/no/such/shell\n"), "program-interpreter");
  EXPECT_EQ(Id("#!\n"), "program-interpreter");
  EXPECT_EQ(Id("#! \t "), "program-interpreter");
  EXPECT_EQ(Id("#!/etc -x\n"), "program-interpreter");
}

TEST_F(ProgramFile, TellsACarriageReturnBehindTheInterpreter) {
  const auto problem =
      FindProgramProblem(Executable("dos", "#!/bin/sh\r\necho\r\n"));
  ASSERT_TRUE(problem);
  EXPECT_STREQ(problem->rule->id, "program-interpreter");
  EXPECT_NE(problem->advice.find("line feeds"), std::string::npos);
}

TEST_F(ProgramFile, TellsAFileThatIsNoProgram) {
  EXPECT_EQ(Id("echo hello\n"), "program-format");
  EXPECT_EQ(Id(""), "program-format");
}

TEST_F(ProgramFile, DoesNotJudgeWhatItMayNotRead) {
  if (geteuid() == 0) {
    GTEST_SKIP() << "root may read everything";
  }
  const std::string path = Executable("secret", "echo\n");
  chmod(path.c_str(), 0111);
  EXPECT_EQ(IdOf(path), "");
}

TEST_F(ProgramFile, AdvisesOnTheUsualSlips) {
  Executable("found", "#!/bin/sh\n");
  setenv("PATH", (":" + std::string(directory_.Path())).c_str(), 1);
  const auto advice = [](const char* path) {
    return FindProgramProblem(path)->advice;
  };
  EXPECT_NE(advice("found").find(directory_.Path() / "found"),
            std::string::npos);
  EXPECT_NE(advice("nowhere").find("does not search PATH"), std::string::npos);
  EXPECT_NE(advice("~/x").find("no shell"), std::string::npos);
  EXPECT_NE(advice("/bin/sh -c").find("\"args\""), std::string::npos);
}

}  // namespace
