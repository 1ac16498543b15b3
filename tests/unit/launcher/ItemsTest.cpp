#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "launcher/Items.h"

namespace {

using namespace std::string_literals;

// The calls of a walk over `items`, in order: "0 name" for a named item, "1 -"
// for a nameless one.
std::vector<std::string> Walk(const std::string& items) {
  JsonObject document(items.c_str());
  std::vector<std::string> calls;
  WalkItems(
      document,
      [&](int index, JsonObject item) {
        calls.push_back(std::to_string(index) + " " +
                        std::string(item.GetObject("name")));
      },
      [&](int index, JsonObject) {
        calls.push_back(std::to_string(index) + " -");
      });
  return calls;
}

using Calls = std::vector<std::string>;

TEST(WalkItems, FollowsTheNumbersAndNotTheKeysOrder) {
  EXPECT_EQ(Walk(R"({"10": {"name": "k"}, "9": {"name": "j"},
                     "8": {"name": "i"}, "7": {"name": "h"},
                     "6": {"name": "g"}, "5": {"name": "f"},
                     "4": {"name": "e"}, "3": {"name": "d"},
                     "2": {"name": "c"}, "1": {"name": "b"},
                     "0": {"name": "a"}})"),
            (Calls{"0 a", "1 b", "2 c", "3 d", "4 e", "5 f", "6 g", "7 h",
                   "8 i", "9 j", "10 k"}));
}

TEST(WalkItems, EndsAtTheFirstMissingKey) {
  EXPECT_EQ(Walk(R"({"0": {"name": "a"}, "2": {"name": "c"}})"), Calls{"0 a"});
  EXPECT_EQ(Walk(R"({"1": {"name": "b"}, "00": {"name": "a"}, "-1": {}})"),
            Calls{});
  EXPECT_EQ(Walk("{}"), Calls{});
  EXPECT_EQ(Walk("null"), Calls{});
}

TEST(WalkItems, HasACallOfItsOwnForItemsWithoutAName) {
  EXPECT_EQ(Walk(R"({"0": null, "1": {}, "2": {"name": null}, "3": {"Name": 1},
                     "4": {"name": 4}})"),
            (Calls{"0 -", "1 -", "2 ", "3 -", "4 4"}));
}

TEST(WalkItems, GivesViews) {
  JsonObject document(R"({"0": {"name": "a"}, "1": {}})");
  const auto mark = [](int, JsonObject item) { item["seen"] = "yes"s; };
  WalkItems(document, mark, mark);
  EXPECT_EQ(document.ToText(),
            R"({"0":{"name":"a","seen":"yes"},"1":{"seen":"yes"}})");
}

TEST(WalkItems, ThrowsForAnythingButAnObject) {
  for (const char* const items :
       {"[]", "5", "true", R"({"0": 5})", R"({"0": []})"}) {
    EXPECT_THROW(Walk(items), Json::LogicError) << items;
  }
}

TEST(ItemProgram, IsThePathAsText) {
  JsonObject item(R"({"program": "/bin/true"})");
  EXPECT_EQ(ItemProgram(item), "/bin/true");
  JsonObject number(R"({"program": 5})");
  EXPECT_EQ(ItemProgram(number), "5");
}

TEST(ItemProgram, IsEmptyWithoutAPath) {
  for (const char* const text : {"{}", R"({"program": null})"}) {
    JsonObject item(text);
    EXPECT_EQ(ItemProgram(item), "") << text;
  }
}

TEST(ItemVectorLength, CountsThePathAndTheArguments) {
  const auto length = [](const std::string& argc) {
    JsonObject item(("{\"argc\": " + argc + "}").c_str());
    return ItemVectorLength(item);
  };
  EXPECT_EQ(length("0"), 1);
  EXPECT_EQ(length("2"), 3);
  EXPECT_EQ(length("null"), 1);
  EXPECT_EQ(length("1.9"), 2);
  EXPECT_EQ(length("-1"), 0);
  EXPECT_EQ(length("-2"), 0);
  EXPECT_EQ(length("2147483647"), std::int64_t{INT_MAX} + 1);
  EXPECT_EQ(length("2147483648"), 0) << "the low 32 bits are negative";
  EXPECT_EQ(length("4294967297"), 2) << "the low 32 bits are 1";
  EXPECT_THROW(length("\"1\""), Json::LogicError);
}

TEST(ItemVectorLength, IsOneWithoutArgcAndAddsNothing) {
  JsonObject item(R"({"args": {"0": "a"}})");
  EXPECT_EQ(ItemVectorLength(item), 1);
  EXPECT_EQ(item.ToText(), R"({"args":{"0":"a"}})");
}

TEST(ItemArgument, IsTheTextOneKeyBelowItsPosition) {
  JsonObject item(R"({"args": {"0": "a", "1": 2, "9": "j"}})");
  EXPECT_EQ(ItemArgument(item, 1), "a");
  EXPECT_EQ(ItemArgument(item, 2), "2");
  EXPECT_EQ(ItemArgument(item, 10), "j");
}

TEST(ItemArgument, AddsAMissingOneAsNull) {
  JsonObject item(R"({"args": {"0": "a"}})");
  EXPECT_EQ(ItemArgument(item, 2), "");
  EXPECT_EQ(item.ToText(), R"({"args":{"0":"a","1":null}})");
  JsonObject empty("{}");
  EXPECT_EQ(ItemArgument(empty, 1), "");
  EXPECT_EQ(empty.ToText(), R"({"args":{"0":null}})");
}

}  // namespace
