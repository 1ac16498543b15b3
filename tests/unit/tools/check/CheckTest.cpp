#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "common/AError.h"
#include "common/json/JsonObject.h"
#include "launcher/Messages.h"
#include "tests/unit/tools/check/CheckFixture.h"
#include "tools/check/Check.h"

namespace {

TEST_F(Check, FindsNothingInAGoodFile) {
  Run(R"({"0": {"name": "a", "program": "/bin/sh", "argc": 2,
                "args": {"0": "-c", "1": "sleep 5"}},
          "1": {"name": "b", "program": "/bin/sh"}})");
  EXPECT_EQ(Ids(), Vector{});
  ASSERT_EQ(result_.items.size(), 2U);
  EXPECT_EQ(result_.items[0].index, 0);
  EXPECT_EQ(result_.items[0].name, "a");
  EXPECT_TRUE(result_.items[0].runs);
  EXPECT_EQ(result_.items[0].vector, (Vector{"/bin/sh", "-c", "sleep 5"}));
  EXPECT_EQ(result_.items[1].vector, Vector{"/bin/sh"});
}

TEST_F(Check, ReadsUpToANul) {
  Run(Item("") + "\n" + std::string(1, '\0') + "}");
  ExpectError("nul", "", "2:1");
  ASSERT_EQ(result_.items.size(), 1U);
}

TEST_F(Check, SaysWhereAFileIsNotJson) {
  Run("{\"0\": {\n  \"name\" \"a\"}}");
  ASSERT_FALSE(All().empty());
  EXPECT_STREQ(First().rule->id, "not-json");
  EXPECT_EQ(First().rule->severity, Severity::kError);
  EXPECT_EQ(PlaceText(First()), "2:10");
  EXPECT_NE(First().problem.find("Missing ':'"), std::string::npos);
  EXPECT_NE(First().effect.find(kParseFailedMessage), std::string::npos);
  EXPECT_TRUE(result_.items.empty());
}

TEST_F(Check, FindsNestingBeyondTheLimit) {
  constexpr std::size_t kLevels = 1001;
  Run(std::string(kLevels, '['));
  EXPECT_EQ(Ids(), Vector{"not-json"});
}

TEST_F(Check, FindsATopLevelThatIsNotAnObject) {
  for (const char* const text : {"[1]", "5", "\"x\"", "true"}) {
    Run(text);
    ExpectError("top-level-type", "", "1:1");
  }
}

TEST_F(Check, FindsThatThereAreNoItems) {
  Run("{}");
  ExpectWarning("no-items", "", "1:1");
  Run("null");
  ExpectWarning("no-items", "", "1:1");
}

TEST_F(Check, StopsAtAnItemThatIsNotAnObject) {
  for (const char* const value : {"5", "\"x\"", "[]", "false"}) {
    Run(R"({"0": {"name": "a", "program": "/bin/sh"}, "1": )" +
        std::string(value) + R"(, "2": {"name": "c", "program": "/bin/sh"}})");
    ExpectError("item-type", "", "1:49");
    EXPECT_EQ(First().place.item, 1);
    EXPECT_EQ(result_.items.size(), 1U);
  }
}

TEST_F(Check, FindsANameThatIsNotAString) {
  Run(R"({"0": {"name": ["a"], "program": "/bin/sh"}})");
  ExpectError("name-type", "name", "1:16");
}

TEST_F(Check, FindsAnItemWithoutAName) {
  Run(R"({"0": {"program": "/bin/sh"}, "1": null,
          "2": {"name": "c", "program": "/bin/sh"}})");
  EXPECT_EQ(Ids(), (Vector{"name-missing", "name-missing"}));
  EXPECT_EQ(First().rule->severity, Severity::kError);
  ASSERT_EQ(result_.items.size(), 3U);
  EXPECT_FALSE(result_.items[1].name);
  EXPECT_FALSE(result_.items[1].runs);
  EXPECT_TRUE(result_.items[2].runs);
}

TEST_F(Check, FindsDuplicateNames) {
  Run(R"({"0": {"name": "a", "program": "/bin/sh"},
 "1": {"name": "a", "program": "/bin/sh"}, "2": {"name": "a",
 "program": "/bin/sh"}})");
  EXPECT_EQ(Ids(), (Vector{"name-duplicate", "name-duplicate"}));
  EXPECT_EQ(First().rule->severity, Severity::kError);
  EXPECT_EQ(First().place.item, 1);
  EXPECT_EQ(PlaceText(First()), "2:16");
  EXPECT_NE(All().at(1).problem.find("item 1"), std::string::npos);
  EXPECT_FALSE(result_.items[0].runs);
  EXPECT_FALSE(result_.items[1].runs);
  EXPECT_TRUE(result_.items[2].runs);
}

TEST_F(Check, FindsKeysAfterAGap) {
  Run(R"({"0": {"name": "a", "program": "/bin/sh"}, "2": {}, "10": {}})");
  EXPECT_EQ(Ids(), (Vector{"gap", "gap"}));
  EXPECT_EQ(First().place.key, "2");
  EXPECT_EQ(PlaceText(First()), "1:44");
  EXPECT_NE(First().problem.find("\"1\""), std::string::npos);
  Run(R"({"1": {"name": "a", "program": "/bin/sh"}})");
  ExpectError("gap", "1", "1:2");
}

TEST_F(Check, FindsKeysThatAreNotNumbersOfItems) {
  for (const char* const key : {"00", " 1", "+1", "-1", "1.0", "x", ""}) {
    Run(R"({"0": {"name": "a", "program": "/bin/sh"}, ")" + std::string(key) +
        "\": {}}");
    ExpectError("stray-item", key, "1:44");
  }
  Run(R"({"items": [{"name": "a", "program": "/bin/sh"}]})");
  ExpectError("stray-item", "items", "1:2");
  Run(R"({"0": {"name": "a", "program": "/bin/sh"}, "version": 1})");
  ExpectWarning("unknown-key", "version", "1:44");
}

TEST_F(Check, AllowsASchemaForEditors) {
  Run(R"({"$schema": "x", "0": {"name": "a", "program": "/bin/sh"}})");
  EXPECT_EQ(Ids(), Vector{});
}

TEST_F(Check, FindsMembersThatALaterOneReplaces) {
  Run(R"({"0": 5, "0": {"name": "a", "name": "b", "program": "/bin/sh",
 "argc": 1, "args": {"0": "x", "0": "y"}}})");
  EXPECT_EQ(Ids(), (Vector{"duplicate-key", "duplicate-key", "item-replaced"}));
  EXPECT_EQ(PlaceText(All()[2]), "1:2");
  EXPECT_EQ(result_.items[0].name, "b");
  EXPECT_EQ(result_.items[0].vector, (Vector{"/bin/sh", "y"}));
}

TEST_F(Check, FindsTextAfterTheDocument) {
  Run(Item("") + "\n}");
  ExpectWarning("trailing-text", "", "2:1");
  Run(Item("") + " // x\n");
  ExpectWarning("comment", "", "1:44");
}

TEST_F(Check, FindsItemsAfterABraceThatClosesTooEarly) {
  Run(Item("") + R"(, "1": {"name": "b", "program": "/bin/sh"}})");
  ExpectError("closed-early", "", "1:43");
}

TEST_F(Check, FindsComments) {
  Run("// the items\n" + Item("") + "/* more */");
  ExpectWarning("comment", "", "1:1");
}

TEST_F(Check, SurvivesAnyNesting) {
  constexpr std::size_t kLevels = 100'000;
  Run(std::string(kLevels, '[') + std::string(kLevels, ']'));
  EXPECT_EQ(Ids(), Vector{"not-json"});
}

// Some versions of the JSON library reject them.
TEST_F(Check, FindsRawControlCharacters) {
  Run(Item("\"argc\": 1, \"args\": {\"0\": \"a\tb\"}"));
  try {
    const JsonObject accepted("[\"\t\"]");
    ExpectWarning("raw-control", "", "1:68");
    EXPECT_EQ(result_.items.at(0).vector, (Vector{"/bin/sh", "a\tb"}));
  } catch (AERROR) {
    EXPECT_STREQ(First().rule->id, "not-json");
  }
}

class ItemsFile : public testing::Test {
 protected:
  // The rule of the only finding, which checking must keep.
  static std::string Id(const CheckResult& file) {
    const Findings findings = CheckItems(file).findings;
    return findings.size() == 1 ? findings[0].rule->id : "";
  }

  TempDir directory_;
};

TEST_F(ItemsFile, IsReadToItsEnd) {
  const std::string text(200'000, 'x');
  const CheckResult file = ReadItemsFile(directory_.Write("f", text));
  EXPECT_TRUE(file.readable);
  EXPECT_EQ(file.text, text);
  EXPECT_TRUE(file.findings.empty());
}

TEST_F(ItemsFile, MustExist) {
  const CheckResult file = ReadItemsFile(directory_.Path() / "none");
  EXPECT_FALSE(file.readable);
  EXPECT_EQ(Id(file), "unreadable");
  EXPECT_NE(file.findings[0].problem.find("No such file"), std::string::npos);
}

TEST_F(ItemsFile, MustNotBeADirectory) {
  const CheckResult file = ReadItemsFile(directory_.Path());
  EXPECT_FALSE(file.readable);
  EXPECT_FALSE(file.text);
  EXPECT_EQ(Id(file), "directory");
  EXPECT_NE(file.findings[0].effect.find("forever"), std::string::npos);
}

TEST_F(ItemsFile, MustNotFailWhileItIsRead) {
  const std::string unreadable = "/proc/self/mem";
  if (!std::filesystem::exists(unreadable)) {
    GTEST_SKIP() << "there is no such file here";
  }
  const CheckResult file = ReadItemsFile(unreadable);
  EXPECT_FALSE(file.readable);
  EXPECT_EQ(Id(file), "read-error");
  EXPECT_NE(file.findings[0].effect.find("forever"), std::string::npos);
}

TEST_F(ItemsFile, MustBeARegularFile) {
  const std::string fifo = directory_.Path() / "fifo";
  mkfifo(fifo.c_str(), 0600);
  for (const std::string& path : {fifo, std::string("/dev/zero")}) {
    const CheckResult file = ReadItemsFile(path);
    EXPECT_FALSE(file.readable);
    EXPECT_EQ(Id(file), "not-regular") << path;
  }
}

TEST_F(ItemsFile, MustNotBeUtf16) {
  using namespace std::string_view_literals;
  for (const std::string_view text :
       {"\xFF\xFE{\0}\0"sv, "\xFE\xFF\0{\0}"sv, "{\0}\0"sv, "\0{\0}"sv}) {
    const CheckResult file = ReadItemsFile(directory_.Write("f", text));
    EXPECT_TRUE(file.readable);
    EXPECT_FALSE(file.text);
    EXPECT_EQ(Id(file), "utf-16");
  }
}

TEST_F(ItemsFile, MustNotBeEmpty) {
  const CheckResult file = ReadItemsFile(directory_.Write("f", ""));
  EXPECT_TRUE(file.readable);
  EXPECT_FALSE(file.text);
  EXPECT_EQ(Id(file), "empty");
}

TEST_F(ItemsFile, IsCutAtANul) {
  const CheckResult file =
      ReadItemsFile(directory_.Write("f", std::string("a\nb\0c", 5)));
  EXPECT_TRUE(file.readable);
  EXPECT_EQ(file.text, "a\nb");
  ASSERT_EQ(file.findings.size(), 1U);
  EXPECT_STREQ(file.findings[0].rule->id, "nul");
  EXPECT_EQ(file.findings[0].place.offset, 3U);
}

}  // namespace
