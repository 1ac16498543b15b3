#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/check/JsonText.h"

namespace {

using Names = std::vector<std::string>;

Names NamesAt(const JsonText& json, std::size_t offset) {
  Names names;
  for (const JsonKey& key : json.KeysAt(offset)) {
    names.push_back(key.name);
  }
  return names;
}

TEST(JsonText, FindsTheKeysOfEachObject) {
  const std::string text =
      "{\"a\": 1,\n  \"b\" : {\"c\":[{}, \"]\", {\"d\":0}]}}";
  const JsonText json = ScanJson(text);
  EXPECT_EQ(NamesAt(json, 0), (Names{"a", "b"}));
  EXPECT_EQ(json.KeysAt(0)[1].offset, text.find("\"b\""));
  EXPECT_EQ(NamesAt(json, text.find("{\"c\"")), Names{"c"});
  EXPECT_EQ(NamesAt(json, text.find("{\"d\"")), Names{"d"});
  EXPECT_EQ(NamesAt(json, 1), Names{});
}

TEST(JsonText, DecodesKeys) {
  EXPECT_EQ(NamesAt(ScanJson(R"({"\u0061\n\"}": 1, "k\u0000z": 2})"), 0),
            (Names{"a\n\"}", std::string("k\0z", 3)}));
}

TEST(JsonText, KeepsKeysThatALaterOneReplaces) {
  EXPECT_EQ(NamesAt(ScanJson(R"({"a":1,"a":"x"})"), 0), (Names{"a", "a"}));
}

TEST(JsonText, NamesTheKeysThatALaterOneReplaces) {
  const JsonText json = ScanJson(R"({"a":1,"b":2,"a":3,"a":4})");
  const auto replaced = json.ReplacedKeysAt(0);
  ASSERT_EQ(replaced.size(), 2U);
  EXPECT_EQ(replaced[0].name, "a");
  EXPECT_EQ(replaced[0].offset, 13U);
  EXPECT_EQ(replaced[1].offset, 1U);
  EXPECT_TRUE(json.ReplacedKeysAt(1).empty());
}

TEST(JsonText, SkipsCommentsAndFindsTheFirst) {
  const std::string text = "{ /* } */ \"a\" : /*:*/ 1 // \"\n, \"b\": 2}";
  const JsonText json = ScanJson(text);
  EXPECT_EQ(NamesAt(json, 0), (Names{"a", "b"}));
  EXPECT_EQ(json.comment, 2U);
  EXPECT_EQ(ScanJson("{\"a\": \"// no comment\"}").comment, std::nullopt);
  EXPECT_EQ(ScanJson("{} // x").comment, 3U);
}

TEST(JsonText, SkipsJunkAfterAComment) {
  for (const char* const text :
       {R"({"a":1/**/:"b":2})", R"({"a":1/**/5 "b":2})"}) {
    EXPECT_EQ(NamesAt(ScanJson(text), 0), (Names{"a", "b"})) << text;
  }
}

TEST(JsonText, FindsStringsWithRawControlCharacters) {
  const JsonText json =
      ScanJson("{\"a\tb\":\"c\", \"d\":\"\\t\n\", \"e\":\" \"}");
  EXPECT_EQ(json.raw_controls, (std::vector<std::size_t>{1, 16}));
}

TEST(JsonText, EndsOnAnyText) {
  const std::string text = R"({"0": {"a\"": [1, {"b": tru}, "c"]}}, /* x)";
  for (std::size_t length = 0; length <= text.size(); ++length) {
    ScanJson(text.substr(0, length));
    ScanJson(text.substr(length));
  }
  ScanJson("\"\\");
}

TEST(JsonText, ScansAnyDepth) {
  constexpr std::size_t kLevels = 1'000'000;
  ScanJson(std::string(kLevels, '['));
  ScanJson(std::string(kLevels, '{'));
  ScanJson(std::string(kLevels, ']'));
}

TEST(JsonText, FindsTheNextToken) {
  EXPECT_EQ(NextToken(" \t\r\n x", 0), 5U);
  EXPECT_EQ(NextToken("/* x */ // y\n z", 0), 14U);
  EXPECT_EQ(NextToken("ab", 1), 1U);
  EXPECT_EQ(NextToken("/ x", 0), 0U);
  for (const std::string text : {"", "  ", "// x", "/* x", "/*/"}) {
    EXPECT_EQ(NextToken(text, 0), text.size()) << text;
  }
}

TEST(SyntaxErrors, AreNoneForADocument) {
  EXPECT_TRUE(FindSyntaxErrors("{\"a\": [1, null]}").empty());
}

TEST(SyntaxErrors, SayWhereTheParserFailed) {
  const Findings errors = FindSyntaxErrors("{\"a\": 1,\n \"b\" 2}");
  ASSERT_FALSE(errors.empty());
  EXPECT_STREQ(errors[0].rule->id, "not-json");
  EXPECT_EQ(errors[0].place.offset, 14U);
  EXPECT_NE(errors[0].problem.find("':'"), std::string::npos);
}

TEST(SyntaxErrors, AreFoundInTextsThatEndInACarriageReturn) {
  EXPECT_FALSE(FindSyntaxErrors("{\"a\"\r").empty());
  EXPECT_FALSE(FindSyntaxErrors("").empty());
}

TEST(SyntaxErrors, IncludeNestingBeyondTheLimit) {
  constexpr std::size_t kLevels = 100'000;
  EXPECT_EQ(FindSyntaxErrors(std::string(kLevels, '[')).size(), 1U);
}

// The first finding as "id offset".
std::string First(const std::string& text) {
  const Findings errors = FindSyntaxErrors(text);
  return errors.empty() ? ""
                        : std::string(errors[0].rule->id) + " " +
                              std::to_string(errors[0].place.offset.value());
}

TEST(SyntaxErrors, NameTheUsualSlips) {
  EXPECT_EQ(First("{'a': 1}"), "quotes 1");
  EXPECT_EQ(First("{\"a\": 'x'}"), "quotes 6");
  EXPECT_EQ(First("{“a”: 1}"), "quotes 1");
  EXPECT_EQ(First("{a: 1}"), "quotes 1");
  EXPECT_EQ(First("{_a: 1}"), "quotes 1");
  EXPECT_EQ(First("{\"a\": 1,\n}"), "trailing-comma 9");
  EXPECT_EQ(First("[1, ]"), "trailing-comma 4");
  EXPECT_EQ(First("[1 }"), "not-json 3");
  EXPECT_EQ(First("{\"a\"/*c*/: 1}"), "comment-misplaced 4");
  EXPECT_EQ(First("{\"a\"//c\n: 1}"), "comment-misplaced 4");
  EXPECT_EQ(First("{ # c\n}"), "comment-misplaced 2");
  EXPECT_EQ(First("{\"a\": tru}"), "not-json 6");
  EXPECT_EQ(First("{\"a\": 1"), "not-json 7");
}

TEST(SyntaxErrors, FollowAByteOrderMark) {
  EXPECT_EQ(First("\xEF\xBB\xBF{}"), "bom 0");
  const Findings errors = FindSyntaxErrors("\xEF\xBB\xBF{a: 1}");
  ASSERT_EQ(errors.size(), 2U);
  EXPECT_STREQ(errors[1].rule->id, "quotes");
  EXPECT_EQ(errors[1].place.offset, 4U);
}

TEST(SyntaxErrors, SayThatTheTextEnds) {
  for (const char* const text : {"", "{", "[1, ", "{\"a\": "}) {
    EXPECT_EQ(FindSyntaxErrors(text)[0].problem,
              "ends before all its brackets and quotes are closed")
        << text;
  }
}

TEST(KeyNames, MeanThemselves) {
  for (const char* const key : {"name", "program", "argc", "args"}) {
    EXPECT_EQ(KeyMeantBy(key), key);
  }
}

TEST(KeyNames, AreRecognisedInSlips) {
  EXPECT_EQ(KeyMeantBy("Name"), "name");
  EXPECT_EQ(KeyMeantBy("programm"), "program");
  EXPECT_EQ(KeyMeantBy("porgram"), "program");
  EXPECT_EQ(KeyMeantBy("ARGS"), "args");
  EXPECT_EQ(KeyMeantBy("agrc"), "argc");
  EXPECT_EQ(KeyMeantBy("nm"), "name");
}

TEST(KeyNames, AreRecognisedUnderOtherNames) {
  for (const char* const key : {"command", "CMD", "exec", "path"}) {
    EXPECT_EQ(KeyMeantBy(key), "program") << key;
  }
  for (const char* const key : {"argv", "arguments", "arg", "params"}) {
    EXPECT_EQ(KeyMeantBy(key), "args") << key;
  }
  EXPECT_EQ(KeyMeantBy("label"), "name");
}

TEST(KeyNames, AreNotSeenInOtherWords) {
  EXPECT_EQ(KeyMeantBy("restart"), "");
  EXPECT_EQ(KeyMeantBy("n"), "");
  EXPECT_EQ(KeyMeantBy(""), "");
}

TEST(IndexKeys, AreDecimalNumbersWithoutLeadingZeros) {
  for (const std::uint64_t index : {0U, 9U, 10U, 123U}) {
    EXPECT_EQ(IndexOf(std::to_string(index)), index);
  }
  for (const char* const key : {"", "00", "01", "-1", "+1", "1 ", "x", "1x"}) {
    EXPECT_EQ(IndexOf(key), std::nullopt) << key;
  }
}

}  // namespace
