#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>

#include "tests/support/TempDir.h"
#include "tools/log/LogReader.h"

namespace {

using Names = std::vector<std::string>;

std::string Line(const std::string& name, const std::string& second = "31") {
  return "2026-11-21T06:20:" + second + ".000000Z ERROR 1:2 [LAUNCHER  ] " +
         name + " 3 is killed. ret = 3, status = 0\n";
}

class Reader : public testing::Test {
 protected:
  void Start(EventFilter filter = {}) {
    reader_ = std::make_unique<LogReader>(
        path_, std::move(filter),
        [this](const LogEvent& event) { names_.emplace_back(event.name); },
        [this] { ++unreadable_; });
  }
  void ReadAll() {
    ASSERT_EQ(reader_->Open(), 0);
    reader_->ReadAll([](std::uint64_t) {});
  }
  void Append(const std::string& text) {
    std::ofstream(path_, std::ios::app) << text;
  }

  TempDir directory_;
  std::string path_ = directory_.Path() / "launcher.log";
  std::unique_ptr<LogReader> reader_;
  Names names_;
  int unreadable_ = 0;
};

TEST_F(Reader, ReadsRotatedFilesOldestFirst) {
  directory_.Write("launcher.log", Line("c"));
  directory_.Write("launcher.1.log", Line("b") + "junk\n" + "junk without end");
  directory_.Write("launcher.2.log", Line("a"));
  Start();
  ReadAll();
  EXPECT_EQ(names_, (Names{"a", "b", "c"}));
  EXPECT_EQ(unreadable_, 2);
  EXPECT_EQ(reader_->Files().size(), 3U);
}

TEST_F(Reader, TellsThatThereIsNoLog) {
  Start();
  EXPECT_EQ(reader_->Open(), ENOENT);
  path_ = directory_.Path();
  Start();
  EXPECT_EQ(reader_->Open(), EISDIR);
}

TEST_F(Reader, GivesOnlyWhatIsWanted) {
  directory_.Write("launcher.log", Line("a", "10") + Line("a", "40") +
                                       Line("b", "40") + Line("x\\ny", "40"));
  Start({1795242031000000, {"a", "x\ny"}});
  ReadAll();
  EXPECT_EQ(names_, (Names{"a", "x\\ny"}));
}

TEST_F(Reader, FollowsTheLogThroughRotations) {
  directory_.Write("launcher.log", Line("a"));
  Start();
  ReadAll();
  Append(Line("b"));
  reader_->ReadNew();
  Append(Line("c"));
  std::filesystem::rename(path_, directory_.Path() / "launcher.1.log");
  Append(Line("d"));
  reader_->ReadNew();
  Append(Line("e").substr(0, 40));
  reader_->ReadNew();
  EXPECT_EQ(names_, (Names{"a", "b", "c", "d"}));
  Append(Line("e").substr(40));
  reader_->ReadNew();
  EXPECT_EQ(names_, (Names{"a", "b", "c", "d", "e"}));
  EXPECT_EQ(unreadable_, 0);
}

TEST_F(Reader, FollowsALogThatIsYetToCome) {
  Start();
  EXPECT_EQ(reader_->Open(), ENOENT);
  reader_->ReadNew();
  Append(Line("a"));
  reader_->ReadNew();
  EXPECT_EQ(names_, Names{"a"});
}

}  // namespace
