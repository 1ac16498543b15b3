#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/TempDir.h"
#include "tools/check/ItemsFile.h"

namespace {

class ItemsFile : public testing::Test {
 protected:
  // The rule of the only finding.
  static std::string Id(const ItemsText& file) {
    return file.findings.size() == 1 ? file.findings[0].rule->id : "";
  }

  TempDir directory_;
};

TEST_F(ItemsFile, IsReadToItsEnd) {
  const std::string text(200'000, 'x');
  const ItemsText file = ReadItemsFile(directory_.Write("f", text));
  EXPECT_TRUE(file.readable);
  EXPECT_EQ(file.text, text);
  EXPECT_TRUE(file.findings.empty());
}

TEST_F(ItemsFile, MustExist) {
  const ItemsText file = ReadItemsFile(directory_.Path() / "none");
  EXPECT_FALSE(file.readable);
  EXPECT_EQ(Id(file), "unreadable");
  EXPECT_NE(file.findings[0].problem.find("No such file"), std::string::npos);
}

TEST_F(ItemsFile, MustNotBeADirectory) {
  const ItemsText file = ReadItemsFile(directory_.Path());
  EXPECT_FALSE(file.readable);
  EXPECT_FALSE(file.text);
  EXPECT_EQ(Id(file), "directory");
}

TEST_F(ItemsFile, MustNotFailWhileItIsRead) {
  const std::string unreadable = "/proc/self/mem";
  if (!std::filesystem::exists(unreadable)) {
    GTEST_SKIP() << "there is no such file here";
  }
  const ItemsText file = ReadItemsFile(unreadable);
  EXPECT_FALSE(file.readable);
  EXPECT_EQ(Id(file), "read-error");
}

TEST_F(ItemsFile, MustBeARegularFile) {
  const std::string fifo = directory_.Path() / "fifo";
  mkfifo(fifo.c_str(), 0600);
  for (const std::string& path : {fifo, std::string("/dev/zero")}) {
    const ItemsText file = ReadItemsFile(path);
    EXPECT_FALSE(file.readable);
    EXPECT_EQ(Id(file), "not-regular") << path;
  }
}

TEST_F(ItemsFile, MustNotBeUtf16) {
  using namespace std::string_view_literals;
  for (const std::string_view text :
       {"\xFF\xFE{\0}\0"sv, "\xFE\xFF\0{\0}"sv, "{\0}\0"sv, "\0{\0}"sv}) {
    const ItemsText file = ReadItemsFile(directory_.Write("f", text));
    EXPECT_TRUE(file.readable);
    EXPECT_FALSE(file.text);
    EXPECT_EQ(Id(file), "utf-16");
  }
}

TEST_F(ItemsFile, MustNotBeEmpty) {
  const ItemsText file = ReadItemsFile(directory_.Write("f", ""));
  EXPECT_TRUE(file.readable);
  EXPECT_FALSE(file.text);
  EXPECT_EQ(Id(file), "empty");
}

TEST_F(ItemsFile, IsCutAtANul) {
  const ItemsText file =
      ReadItemsFile(directory_.Write("f", std::string("a\nb\0c", 5)));
  EXPECT_TRUE(file.readable);
  EXPECT_EQ(file.text, "a\nb");
  EXPECT_EQ(Id(file), "nul");
  EXPECT_EQ(file.findings[0].place.offset, 3U);
}

}  // namespace
