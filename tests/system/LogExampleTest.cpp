// The example program: the library used without the launcher.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "tests/support/LogReader.h"
#include "tests/support/TempDir.h"

namespace {

int RunExample(const std::string& arguments) {
  const int status =
      std::system((LOG_EXAMPLE " " + arguments + " 2>/dev/null").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Example, LogsItsText) {
  const TempDir dir;
  const auto logs = dir.Path() / "logs";
  EXPECT_EQ(RunExample(logs.string() + " first"), 0);
  EXPECT_EQ(RunExample(logs.string() + " 'the second'"), 0);
  EXPECT_EQ(ReadMessages(logs / "example.log"),
            (std::vector<std::string>{"[EXAMPLE   ] first",
                                      "[EXAMPLE   ] the second"}));
}

TEST(Example, SaysWhatIsWrong) {
  EXPECT_EQ(RunExample(""), 2);
  EXPECT_EQ(RunExample("/dev/null/logs text"), 1);
}

}  // namespace
