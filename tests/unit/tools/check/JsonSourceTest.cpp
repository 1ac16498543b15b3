#include <gtest/gtest.h>

#include "tools/check/JsonSource.h"

namespace {

TEST(JsonSource, TellsWhereMembersStand) {
  const std::string text = "{\"a\": 1,\n  \"b\" : {\"c\":[{}, \"]\"]}}";
  const JsonSource source = LocateJson(text);
  ASSERT_EQ(source.root.members.size(), 2U);
  EXPECT_EQ(source.root.type, JsonType::kObject);
  const JsonMember& b = source.root.Get("b");
  EXPECT_EQ(b.offset, text.find("\"b\""));
  EXPECT_EQ(b.value.offset, text.find("{\"c\""));
  EXPECT_EQ(b.value.Get("c").value.offset, text.find("[{}"));
  EXPECT_EQ(b.value.Get("c").value.bytes, 9U);
  EXPECT_EQ(source.end, text.size());
}

TEST(JsonSource, TellsTypesApart) {
  const JsonSource source = LocateJson(
      R"({"o":{},"a":[],"s":"","n":-1.5e3,"t":true,"f":false,"z":null})");
  const auto type = [&](const char* key) {
    return source.root.Get(key).value.type;
  };
  EXPECT_EQ(type("o"), JsonType::kObject);
  EXPECT_EQ(type("a"), JsonType::kArray);
  EXPECT_EQ(type("s"), JsonType::kString);
  EXPECT_EQ(type("n"), JsonType::kNumber);
  EXPECT_EQ(type("t"), JsonType::kBoolean);
  EXPECT_EQ(type("f"), JsonType::kBoolean);
  EXPECT_EQ(type("z"), JsonType::kNull);
}

TEST(JsonSource, DecodesKeys) {
  const JsonSource source = LocateJson(R"({"\u0061\n\"}": 1, "k\u0000z": 2})");
  EXPECT_NE(source.root.Find("a\n\"}"), nullptr);
  EXPECT_NE(source.root.Find(std::string("k\0z", 3)), nullptr);
}

TEST(JsonSource, FindsTheLastOfEqualKeysAndKeepsAll) {
  const JsonSource source = LocateJson(R"({"a":1,"a":"x"})");
  EXPECT_EQ(source.root.members.size(), 2U);
  EXPECT_EQ(source.root.Get("a").value.type, JsonType::kString);
  EXPECT_EQ(source.root.Find("b"), nullptr);
}

TEST(JsonSource, PassesOverComments) {
  const JsonSource source =
      LocateJson("// {\"x\":1}\n{ /* } */ \"a\" : /*:*/ 1 // \"\n}");
  ASSERT_EQ(source.root.members.size(), 1U);
  EXPECT_EQ(source.root.Get("a").value.type, JsonType::kNumber);
}

TEST(JsonSource, PassesOverJunkBehindAComment) {
  for (const char* const text :
       {R"({"a":1/**/:"b":2})", R"({"a":1/**/5 "b":2})"}) {
    const JsonSource source = LocateJson(text);
    EXPECT_NE(source.root.Find("a"), nullptr) << text;
    EXPECT_NE(source.root.Find("b"), nullptr) << text;
  }
}

TEST(JsonSource, FindsTheEndOfTheDocument) {
  EXPECT_EQ(LocateJson("{} \n x").end, 5U);
  EXPECT_EQ(LocateJson(" 5,").end, 2U);
}

TEST(JsonSource, FindsStringsWithRawControlCharacters) {
  const JsonSource source = LocateJson("{\"a\tb\":\"c\", \"d\":\"\\t\n\"}");
  EXPECT_EQ(source.raw_controls, (std::vector<std::size_t>{1, 16}));
}

TEST(JsonSource, EndsOnAnyText) {
  const std::string text = R"({"0": {"a\"": [1, {"b": tru}, "c"]}, /* x)";
  for (std::size_t length = 0; length <= text.size(); ++length) {
    EXPECT_LE(LocateJson(text.substr(0, length)).end, length);
    EXPECT_LE(LocateJson(text.substr(length)).end, text.size() - length);
  }
}

TEST(JsonSource, CountsLinesAndCharactersFromOne) {
  const std::string text = "ab\ncé数x\n";
  const auto place = [&](std::size_t offset) {
    const Place found = PlaceOf(text, offset);
    return std::pair(found.line, found.column);
  };
  EXPECT_EQ(place(0), std::pair(std::size_t{1}, std::size_t{1}));
  EXPECT_EQ(place(2), std::pair(std::size_t{1}, std::size_t{3}));
  EXPECT_EQ(place(3), std::pair(std::size_t{2}, std::size_t{1}));
  EXPECT_EQ(place(9), std::pair(std::size_t{2}, std::size_t{4}));
  EXPECT_EQ(place(99), std::pair(std::size_t{3}, std::size_t{1}));
}

}  // namespace
