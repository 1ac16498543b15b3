#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/json/JsonObject.h"
#include "tools/check/JsonText.h"

namespace {

using Names = std::vector<std::string>;

Names NamesOf(const JsonText& json, const Json::Value* object) {
  Names names;
  for (const JsonKey& key : json.KeysOf(object)) {
    names.push_back(key.name);
  }
  return names;
}

// The names of the keys at the top level.
Names NamesIn(const std::string& text) {
  const JsonText json = ReadJson(text);
  return NamesOf(json, &json.root);
}

TEST(JsonText, HasTheTreeThatTheLauncherReads) {
  const JsonText json = ReadJson("{\"a\": 1, \"a\": [2]}");
  EXPECT_TRUE(json.errors.empty());
  EXPECT_EQ(json.root["a"][0].asInt(), 2);
  EXPECT_EQ(OffsetOf(json.root["a"]), 14U);
}

TEST(JsonText, FindsTheKeysOfEachObject) {
  const std::string text =
      "{\"a\": 1,\n  \"b\" : {\"c\":[{}, \"]\", {\"d\":0}]}}";
  const JsonText json = ReadJson(text);
  const Json::Value& b = json.root["b"];
  EXPECT_EQ(NamesOf(json, &json.root), (Names{"a", "b"}));
  EXPECT_EQ(json.KeysOf(&json.root)[1].offset, text.find("\"b\""));
  EXPECT_EQ(NamesOf(json, &b), Names{"c"});
  EXPECT_EQ(NamesOf(json, &b["c"][2]), Names{"d"});
  EXPECT_EQ(NamesOf(json, &b["c"][0]), Names{});
  EXPECT_EQ(NamesOf(json, &b["c"]), Names{});
  EXPECT_EQ(NamesOf(json, nullptr), Names{});
}

TEST(JsonText, DecodesKeys) {
  EXPECT_EQ(NamesIn(R"({"\u0061\n\"}": 1, "k\u0000z": 2})"),
            (Names{"a\n\"}", std::string("k\0z", 3)}));
}

TEST(JsonText, KeepsKeysThatALaterOneReplaces) {
  EXPECT_EQ(NamesIn(R"({"a":1,"a":"x"})"), (Names{"a", "a"}));
}

TEST(JsonText, NamesTheKeysThatALaterOneReplaces) {
  const JsonText json = ReadJson(R"({"a":1,"b":2,"a":3,"a":4})");
  const auto replaced = json.ReplacedKeysOf(&json.root);
  ASSERT_EQ(replaced.size(), 2U);
  EXPECT_EQ(replaced[0].name, "a");
  EXPECT_EQ(replaced[0].offset, 13U);
  EXPECT_EQ(replaced[1].offset, 1U);
  EXPECT_TRUE(json.ReplacedKeysOf(&json.root["b"]).empty());
}

TEST(JsonText, SkipsCommentsAndFindsTheFirst) {
  const std::string text = "{ /* } */ \"a\" : /*:*/ 1 // \"\n, \"b\": 2}";
  EXPECT_EQ(NamesIn(text), (Names{"a", "b"}));
  EXPECT_EQ(ReadJson(text).comment, 2U);
  EXPECT_EQ(ReadJson("{\"a\": \"// no comment\"}").comment, std::nullopt);
  EXPECT_EQ(ReadJson("{} // x").comment, 3U);
}

TEST(JsonText, SkipsJunkAfterAComment) {
  for (const char* const text :
       {R"({"a":1/**/:"b":2})", R"({"a":1/**/5 "b":2})"}) {
    EXPECT_EQ(NamesIn(text), (Names{"a", "b"})) << text;
  }
}

TEST(JsonText, FindsStringsWithRawControlCharacters) {
  const JsonText json =
      ReadJson("{\"a\tb\":\"c\", \"d\":\"\\t\n\", \"e\":\" \"}");
  EXPECT_EQ(json.raw_controls, (std::vector<std::size_t>{1, 16}));
}

TEST(JsonText, EndsOnAnyText) {
  const std::string text = R"({"0": {"a\"": [1, {"b": tru}, "c"]}}, /* x)";
  for (std::size_t length = 0; length <= text.size(); ++length) {
    ReadJson(text.substr(0, length));
    ReadJson(text.substr(length));
  }
  ReadJson("\"\\");
}

TEST(JsonText, ScansAnyDepth) {
  constexpr std::size_t kLevels = 1'000'000;
  ReadJson(std::string(kLevels, '['));
  ReadJson(std::string(kLevels, '{'));
  ReadJson(std::string(kLevels, ']'));
}

TEST(JsonText, EndsAfterBlanksAndComments) {
  const auto end = [](const std::string& text) { return ReadJson(text).end; };
  EXPECT_EQ(end("[] \t\r\n x"), 7U);
  EXPECT_EQ(end("[]/* x */ // y\n z"), 16U);
  EXPECT_EQ(end("[]b"), 2U);
  EXPECT_EQ(end("[]/ x"), 2U);
  for (const std::string rest : {"", "  ", "// x", "/* x", "/*/"}) {
    EXPECT_EQ(end("[]" + rest), rest.size() + 2) << rest;
  }
}

// Whether the launcher reads `text` as a document.
bool IsDocument(const std::string& text) {
  try {
    const JsonObject document(text.data(),
                              static_cast<unsigned int>(text.size()));
    return true;
  } catch (...) {
    return false;
  }
}

TEST(SyntaxErrors, AreNoneExactlyForTheLaunchersDocuments) {
  const std::string text =
      R"( {"0": {"name": "a", "x": [-1.5, null, {}]}, /* c */ "1": ""} // y)";
  EXPECT_TRUE(ReadJson(text).errors.empty());
  for (std::size_t i = 0; i < text.size(); ++i) {
    for (const char* const part : {"", "\"", ",", "}", "]", "1", "\\", "\t"}) {
      const std::string slip = text.substr(0, i) + part + text.substr(i + 1);
      EXPECT_EQ(ReadJson(slip).errors.empty(), IsDocument(slip)) << slip;
    }
  }
}

TEST(SyntaxErrors, SayWhereTheParserFailed) {
  const Findings errors = ReadJson("{\"a\": 1,\n \"b\" 2}").errors;
  ASSERT_FALSE(errors.empty());
  EXPECT_STREQ(errors[0].rule->id, "not-json");
  EXPECT_EQ(errors[0].place.offset, 14U);
  EXPECT_NE(errors[0].problem.find("':'"), std::string::npos);
}

TEST(SyntaxErrors, AreFoundInTextsThatEndInACarriageReturn) {
  EXPECT_FALSE(ReadJson("{\"a\"\r").errors.empty());
  EXPECT_FALSE(ReadJson("").errors.empty());
}

TEST(SyntaxErrors, IncludeNestingBeyondTheLimit) {
  constexpr std::size_t kLevels = 100'000;
  EXPECT_EQ(ReadJson(std::string(kLevels, '[')).errors.size(), 1U);
}

// The first finding as "id offset".
std::string First(const std::string& text) {
  const Findings errors = ReadJson(text).errors;
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
  const Findings errors = ReadJson("\xEF\xBB\xBF{a: 1}").errors;
  ASSERT_EQ(errors.size(), 2U);
  EXPECT_STREQ(errors[1].rule->id, "quotes");
  EXPECT_EQ(errors[1].place.offset, 4U);
}

TEST(SyntaxErrors, SayThatTheTextEnds) {
  for (const char* const text : {"", "{", "[1, ", "{\"a\": "}) {
    EXPECT_EQ(ReadJson(text).errors[0].problem,
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
