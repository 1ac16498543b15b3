#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/TempDir.h"
#include "tools/log/LogFiles.h"

namespace {

using Names = std::vector<std::string>;

TEST(LogFiles, AreFoundOldestFirst) {
  const TempDir directory;
  for (const char* const name :
       {"a.log", "a.1.log", "a.2.log", "a.10.log", "a.20261121-7.full", "b.log",
        "b.1.log", "a.x.log", "a.1.log.gz", "a.0.log", "a..log"}) {
    directory.Write(name, "");
  }
  const std::string path = directory.Path() / "a.log";
  Names names;
  for (const std::string& file : FindLogFiles(path)) {
    names.push_back(std::filesystem::path(file).filename());
  }
  EXPECT_EQ(names, (Names{"a.10.log", "a.2.log", "a.1.log", "a.20261121-7.full",
                          "a.log"}));
  EXPECT_EQ(FindLogFiles(path).back(), path);
}

TEST(LogFiles, MayBeMissing) {
  const TempDir directory;
  EXPECT_EQ(FindLogFiles(directory.Path() / "a.log"), Names{});
  EXPECT_EQ(FindLogFiles(directory.Path() / "none/a.log"), Names{});
  directory.Write("a.1.log", "");
  EXPECT_EQ(FindLogFiles(directory.Path() / "a.log").size(), 1U);
}

class Lines : public testing::Test {
 protected:
  void Append(const std::string& text) {
    const int file = open(path_.c_str(), O_WRONLY | O_APPEND);
    ASSERT_EQ(write(file, text.data(), text.size()),
              static_cast<ssize_t>(text.size()));
    close(file);
  }
  void Read() {
    reader_.ReadAll(descriptor_,
                    [&](std::string_view line) { lines_.emplace_back(line); });
  }
  void TearDown() override { close(descriptor_); }

  TempDir directory_;
  std::string path_ = directory_.Write("log", "");
  int descriptor_ = open(path_.c_str(), O_RDONLY);
  LineReader reader_;
  Names lines_;
};

TEST_F(Lines, AreGivenWhole) {
  Append("a\n\nb");
  Read();
  EXPECT_EQ(lines_, (Names{"a", ""}));
  Append("c\nd");
  Read();
  EXPECT_EQ(lines_, (Names{"a", "", "bc"}));
  reader_.Finish([&](std::string_view line) { lines_.emplace_back(line); });
  EXPECT_EQ(lines_.back(), "d");
}

TEST_F(Lines, MayBeLongerThanAPieceThatIsRead) {
  constexpr std::size_t kLength = 3 * 1024 * 1024 + 5;
  Append("a\n" + std::string(kLength, 'x') + "\nb\n");
  Read();
  ASSERT_EQ(lines_.size(), 3U);
  EXPECT_EQ(lines_[1].size(), kLength);
  EXPECT_EQ(lines_[2], "b");
}

}  // namespace
