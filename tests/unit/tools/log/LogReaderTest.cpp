#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>

#include "tests/support/TempDir.h"
#include "tools/log/LogReader.h"

namespace {

using Lines = std::vector<std::string>;

TEST(LogFiles, AreFoundOldestFirst) {
  const TempDir directory;
  for (const char* const name :
       {"a.log", "a.1.log", "a.2.log", "a.10.log", "a.20261121-7.full", "b.log",
        "b.1.log", "a.x.log", "a.1.log.gz", "a.0.log", "a..log"}) {
    directory.Write(name, "");
  }
  const std::string path = directory.Path() / "a.log";
  Lines names;
  for (const std::string& file : FindLogFiles(path)) {
    names.push_back(std::filesystem::path(file).filename());
  }
  EXPECT_EQ(names, (Lines{"a.10.log", "a.2.log", "a.1.log", "a.20261121-7.full",
                          "a.log"}));
  EXPECT_EQ(FindLogFiles(path).back(), path);
}

TEST(LogFiles, MayBeMissing) {
  const TempDir directory;
  EXPECT_EQ(FindLogFiles(directory.Path() / "a.log"), Lines{});
  EXPECT_EQ(FindLogFiles(directory.Path() / "none/a.log"), Lines{});
  directory.Write("a.1.log", "");
  EXPECT_EQ(FindLogFiles(directory.Path() / "a.log").size(), 1U);
}

class Reader : public testing::Test {
 protected:
  void Start() {
    lines_.clear();
    reader_ = std::make_unique<LogReader>(
        path_, [this](std::string_view line) { lines_.emplace_back(line); });
  }
  void ReadAll() {
    Start();
    ASSERT_TRUE(reader_->Open());
    reader_->ReadAll();
  }
  void Append(const std::string& text) {
    std::ofstream(path_, std::ios::app) << text;
  }
  std::string Refusal() {
    Start();
    try {
      reader_->Open();
      reader_->ReadAll();
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }

  TempDir directory_;
  std::string path_ = directory_.Path() / "launcher.log";
  std::unique_ptr<LogReader> reader_;
  Lines lines_;
};

TEST_F(Reader, GivesWholeLines) {
  Append("a\n\nb");
  ReadAll();
  EXPECT_EQ(lines_, (Lines{"a", ""}));
  Append("c\nd");
  reader_->ReadNew();
  EXPECT_EQ(lines_, (Lines{"a", "", "bc"}));
}

TEST_F(Reader, GivesLinesLongerThanAReadPiece) {
  constexpr std::size_t kLength = 3 * 1024 * 1024 + 5;
  Append("a\n" + std::string(kLength, 'x') + "\nb\n");
  ReadAll();
  ASSERT_EQ(lines_.size(), 3U);
  EXPECT_EQ(lines_[1].size(), kLength);
  EXPECT_EQ(lines_[2], "b");
}

TEST_F(Reader, KeepsOnlyTheEndOfAnEndlessLine) {
  constexpr std::size_t kLength = 40 * 1024 * 1024;
  Append(std::string(kLength, 'x') + "\nb\n");
  ReadAll();
  ASSERT_EQ(lines_.size(), 2U);
  EXPECT_LT(lines_[0].size(), kLength / 2);
  EXPECT_EQ(lines_[0].size() % (1024 * 1024), 0U)
      << "only whole reads are lost";
  EXPECT_EQ(lines_[1], "b");
}

TEST_F(Reader, ReadsRotatedFilesOldestFirst) {
  directory_.Write("launcher.log", "c\n");
  directory_.Write("launcher.1.log", "b\ntorn");
  directory_.Write("launcher.2.log", "a\n");
  ReadAll();
  EXPECT_EQ(lines_, (Lines{"a", "b", "torn", "c"}));
  EXPECT_EQ(reader_->Files().size(), 3U);
  EXPECT_EQ(reader_->Files().back(), path_);
}

TEST_F(Reader, ReadsAFileOfTwoNamesOnce) {
  directory_.Write("launcher.log", "a\n");
  std::filesystem::create_hard_link(path_,
                                    directory_.Path() / "launcher.1.log");
  ReadAll();
  EXPECT_EQ(lines_, Lines{"a"});
}

TEST_F(Reader, FindsNoLog) {
  Start();
  EXPECT_FALSE(reader_->Open());
}

TEST_F(Reader, NamesTheFileThatCannotBeRead) {
  directory_.Write("launcher.log", "a\n");
  std::filesystem::create_directory(directory_.Path() / "launcher.1.log");
  EXPECT_EQ(Refusal(), (directory_.Path() / "launcher.1.log").string() +
                           ": Is a directory");
  path_ = directory_.Path() / "launcher.log/x";
  EXPECT_EQ(Refusal(), "");
  path_ = directory_.Write("other.log", "");
  const std::string link = directory_.Path() / "loop.log";
  std::filesystem::create_symlink(link, link);
  directory_.Write("loop.1.log", "");
  std::filesystem::remove(directory_.Path() / "loop.1.log");
  std::filesystem::create_symlink("loop.1.log",
                                  directory_.Path() / "loop.1.log");
  path_ = directory_.Write("loop.2.log", "");
  path_ = link;
  EXPECT_EQ(Refusal(), (directory_.Path() / "loop.1.log").string() +
                           ": Too many levels of symbolic links");
}

TEST_F(Reader, RefusesACompressedFile) {
  directory_.Write("launcher.log", "\x1f\x8b\x08");
  EXPECT_NE(Refusal().find("launcher.log: compressed"), std::string::npos);
  directory_.Write("launcher.log", "\x1f");
  EXPECT_EQ(Refusal(), "");
}

TEST_F(Reader, FollowsTheLogThroughRotations) {
  directory_.Write("launcher.log", "a\n");
  ReadAll();
  Append("b\n");
  reader_->ReadNew();
  Append("c\ntorn");
  std::filesystem::rename(path_, directory_.Path() / "launcher.1.log");
  Append("d\n");
  reader_->ReadNew();
  Append("begin");
  reader_->ReadNew();
  EXPECT_EQ(lines_, (Lines{"a", "b", "c", "torn", "d"}));
  Append("ning\n");
  reader_->ReadNew();
  EXPECT_EQ(lines_.back(), "beginning");
}

TEST_F(Reader, FollowsALogThatDoesNotExistYet) {
  Start();
  EXPECT_FALSE(reader_->Open());
  reader_->ReadNew();
  Append("a\n");
  reader_->ReadNew();
  EXPECT_EQ(lines_, Lines{"a"});
}

}  // namespace
