#include <gtest/gtest.h>

#include "tests/unit/tools/check/CheckFixture.h"
#include "tools/check/Check.h"

namespace {

using Changes = std::vector<std::string>;

FixedItems Fixed(const std::string& text) {
  return FixItems(text).value_or(FixedItems{"not corrected", {}});
}

TEST(Fix, LeavesAGoodFileAsItIs) {
  const std::string text = R"({"0":   {"name": "a", "program": "/bin/sh"}})";
  EXPECT_EQ(Fixed(text).text, text);
  EXPECT_EQ(Fixed(text).changes, Changes{});
}

TEST(Fix, WritesItemsByNumberAndKnownMembersFirst) {
  std::string text = R"({"$schema": "s", "x": [1, {"a": null}], "1": {)";
  text += R"("program": "/é", "z": {}, "name": "b"},)";
  for (int i = 2; i <= 10; ++i) {
    text += "\"" + std::to_string(i) + "\": {},";
  }
  text += R"("0": {"args": {"1": "\t", "0": "x"}, "name": "a"}})";
  EXPECT_TRUE(Fixed(text).text.starts_with(R"({
  "$schema": "s",
  "0": {
    "name": "a",
    "argc": 2,
    "args": { "0": "x", "1": "\t" }
  },
  "1": {
    "name": "b",
    "program": "/é",
    "z": {}
  },
  "2": {},
  "3": {},
)")) << Fixed(text).text;
  EXPECT_TRUE(Fixed(text).text.ends_with(R"(
  "10": {},
  "x": [1,{"a":null}]
}
)")) << Fixed(text).text;
}

TEST(Fix, NumbersAnArrayOfItems) {
  const FixedItems fixed = Fixed(R"([{"name": "a"}, {"name": "b"}])");
  EXPECT_NE(fixed.text.find("\"1\": {\n    \"name\": \"b\""),
            std::string::npos);
  EXPECT_EQ(fixed.changes,
            Changes{"turned the list of items into an object with the keys "
                    "\"0\", \"1\", ..."});
}

TEST(Fix, ClosesGapsInTheNumbering) {
  const FixedItems fixed =
      Fixed(R"({"1": {"name": "a"}, "2": {"name": "b"}, "10": {"name": "c"}})");
  EXPECT_EQ(fixed.changes, (Changes{"item \"1\": renumbered to \"0\"",
                                    "item \"2\": renumbered to \"1\"",
                                    "item \"10\": renumbered to \"2\""}));
  EXPECT_LT(fixed.text.find("\"b\""), fixed.text.find("\"c\""));
  EXPECT_EQ(fixed.text.find("\"10\""), std::string::npos);
}

TEST(Fix, CorrectsKeysUnlessTheRightOneIsThere) {
  EXPECT_EQ(Fixed(R"({"0": {"Name": "a", "command": "/x"}})").changes,
            (Changes{"item 0: renamed \"Name\" to \"name\"",
                     "item 0: renamed \"command\" to \"program\""}));
  EXPECT_EQ(Fixed(R"({"0": {"Name": "a", "name": "b", "foo": 1}})").changes,
            Changes{});
}

TEST(Fix, WritesArgumentsAsAnObject) {
  const FixedItems fixed = Fixed(R"({"0": {"args": ["a", "b"]}})");
  EXPECT_NE(fixed.text.find(R"("args": { "0": "a", "1": "b" })"),
            std::string::npos);
  EXPECT_NE(fixed.text.find("\"argc\": 2"), std::string::npos);
  EXPECT_EQ(fixed.changes.size(), 2U);
}

TEST(Fix, CountsTheArguments) {
  const auto changes = [](const std::string& members) {
    return Fixed(R"({"0": {)" + members + "}}").changes;
  };
  const Changes counted{"item 0: set \"argc\" to 1"};
  EXPECT_EQ(changes(R"("args": {"0": "a"})"), counted);
  EXPECT_EQ(changes(R"("args": {"0": "a"}, "argc": "1")"), counted);
  EXPECT_EQ(changes(R"("args": {"0": "a"}, "argc": 1)"), Changes{});
  EXPECT_EQ(changes(R"("args": {"0": "a"}, "argc": 3)"), Changes{});
  EXPECT_EQ(changes(R"("args": {"1": "a"})"), Changes{});
  EXPECT_EQ(changes(R"("args": {})"), Changes{});
  EXPECT_EQ(changes(R"("args": "a")"), Changes{});
  EXPECT_EQ(changes(R"("argc": 1, "args": ["a"])").size(), 1U);
  EXPECT_EQ(changes(R"("argc": 7, "args": ["a"])").size(), 2U);
}

TEST(Fix, WritesNumbersAsTheyAreInTheFile) {
  const FixedItems fixed =
      Fixed(R"({"0": {"name": 7, "argc": 2, "args": {"0": 3.14, "1": true}}})");
  EXPECT_NE(fixed.text.find("\"name\": \"7\""), std::string::npos);
  EXPECT_NE(fixed.text.find(R"({ "0": "3.14", "1": "true" })"),
            std::string::npos);
  EXPECT_EQ(fixed.changes,
            (Changes{"item 0: wrote \"name\" as the text \"7\"",
                     "item 0: wrote \"args/0\" as the text \"3.14\"",
                     "item 0: wrote \"args/1\" as the text \"true\""}));
}

TEST(Fix, CorrectsSmallSlipsOfSyntax) {
  for (const char* const text :
       {"\xEF\xBB\xBF{\"0\": {\"name\": \"a\"}}", "{'0': {\"name\": 'a'}}",
        "{\"0\": {\"name\": \"a\",},}",
        "{\"0\": /* x */ {\"name\": \"a\"}} // y"}) {
    const FixedItems fixed = Fixed(text);
    EXPECT_EQ(fixed.text, "{\n  \"0\": {\n    \"name\": \"a\"\n  }\n}\n");
    EXPECT_EQ(fixed.changes.size(), 1U) << text;
  }
}

TEST(Fix, GivesUpWhereNoCorrectionIsCertain) {
  for (const std::string text : {"", "{", "5", "\"x\"", "null", "{\"0\" 5}"}) {
    EXPECT_FALSE(FixItems(text)) << text;
  }
  EXPECT_FALSE(FixItems(std::string(100'000, '[')));
}

class FixedFile : public Check {};

TEST_F(FixedFile, HasNoErrorsLeft) {
  Run(Fixed(R"([{"Name": 1, "command": "/bin/sh", "arguments": ["-c", 5]},
                {"name": "b", "program": "/bin/sh", "args": {"0": "x"}},])")
          .text);
  EXPECT_EQ(Ids(), Vector{});
  EXPECT_EQ(result_.items.at(0).vector, (Vector{"/bin/sh", "-c", "5"}));
  EXPECT_EQ(result_.items.at(1).vector, (Vector{"/bin/sh", "x"}));
}

}  // namespace
