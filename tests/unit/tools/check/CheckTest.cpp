#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "common/AError.h"
#include "common/json/JsonObject.h"
#include "tests/support/TempDir.h"
#include "tools/check/Check.h"

namespace {

using Vector = std::vector<std::string>;

// An item with the members `rest` behind a name and a program that exist.
std::string Item(const std::string& rest) {
  return R"({"0": {"name": "a", "program": "/bin/sh")" +
         (rest.empty() ? rest : ", " + rest) + "}}";
}

class Check : public testing::Test {
 protected:
  void Run(const std::string& text) {
    result_ = CheckItemsFile(directory_.Write("items.json", text));
  }

  Vector Ids() const {
    Vector ids;
    for (const Finding& finding : All()) {
      ids.push_back(finding.rule->id);
    }
    return ids;
  }

  // The one finding that there is, with its place as "line:column".
  void ExpectOnly(Severity severity, const std::string& id,
                  const std::string& key, const std::string& place) const {
    ASSERT_EQ(Ids(), Vector{id});
    const Finding finding = First();
    EXPECT_EQ(finding.rule->severity, severity);
    EXPECT_EQ(finding.place.key, key);
    EXPECT_FALSE(finding.problem.empty());
    EXPECT_FALSE(finding.effect.empty());
    EXPECT_FALSE(finding.advice.empty());
    EXPECT_EQ(PlaceText(finding), place);
  }
  void ExpectError(const std::string& id, const std::string& key,
                   const std::string& place) const {
    ExpectOnly(Severity::kError, id, key, place);
  }
  void ExpectWarning(const std::string& id, const std::string& key,
                     const std::string& place) const {
    ExpectOnly(Severity::kWarning, id, key, place);
  }

  static std::string PlaceText(const Finding& finding) {
    const Place& place = finding.place;
    return place.line == 0 ? ""
                           : std::to_string(place.line) + ":" +
                                 std::to_string(place.column);
  }

  // Those of the items first.
  Findings All() const {
    Findings all;
    for (const CheckedItem& item : result_.items) {
      all.insert(all.end(), item.findings.begin(), item.findings.end());
    }
    all.insert(all.end(), result_.findings.begin(), result_.findings.end());
    return all;
  }

  Finding First() const { return All().at(0); }

  TempDir directory_;
  CheckResult result_;
};

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

TEST_F(Check, TellsAFileThatIsNotThere) {
  result_ = CheckItemsFile(directory_.Path() / "none");
  EXPECT_FALSE(result_.readable);
  ExpectError("unreadable", "", "");
}

TEST_F(Check, TellsADirectory) {
  result_ = CheckItemsFile(directory_.Path());
  EXPECT_FALSE(result_.readable);
  ExpectError("directory", "", "");
  EXPECT_NE(First().effect.find("forever"), std::string::npos);
}

TEST_F(Check, TellsAFileThatCannotBeReadToItsEnd) {
  const std::string unreadable = "/proc/self/mem";
  if (!std::filesystem::exists(unreadable)) {
    GTEST_SKIP() << "there is no such file here";
  }
  result_ = CheckItemsFile(unreadable);
  EXPECT_FALSE(result_.readable);
  ExpectError("read-error", "", "");
  EXPECT_NE(First().effect.find("forever"), std::string::npos);
}

TEST_F(Check, TellsAnEmptyFile) {
  Run("");
  EXPECT_TRUE(result_.readable);
  ExpectError("empty", "", "");
}

TEST_F(Check, ReadsUpToANul) {
  Run(Item("") + "\n" + std::string(1, '\0') + "}");
  ExpectError("nul", "", "2:1");
  ASSERT_EQ(result_.items.size(), 1U);
}

TEST_F(Check, TellsWhereAFileIsNotJson) {
  Run("{\"0\": {\n  \"name\" \"a\"}}");
  ASSERT_FALSE(All().empty());
  EXPECT_STREQ(First().rule->id, "not-json");
  EXPECT_EQ(First().rule->severity, Severity::kError);
  EXPECT_EQ(PlaceText(First()), "2:10");
  EXPECT_NE(First().problem.find("Missing ':'"), std::string::npos);
  EXPECT_NE(First().effect.find(kParseFailedMessage), std::string::npos);
  EXPECT_TRUE(result_.items.empty());
}

TEST_F(Check, TellsNestingBeyondTheLimit) {
  constexpr std::size_t kLevels = 1001;
  Run(std::string(kLevels, '['));
  EXPECT_EQ(Ids(), Vector{"not-json"});
}

TEST_F(Check, TellsATopLevelThatIsNoObject) {
  for (const char* const text : {"[1]", "5", "\"x\"", "true"}) {
    Run(text);
    ExpectError("top-level-type", "", "1:1");
  }
}

TEST_F(Check, TellsAFileWithoutItems) {
  Run("{}");
  ExpectWarning("no-items", "", "1:1");
  Run("null");
  ExpectWarning("no-items", "", "1:1");
}

TEST_F(Check, TellsAnItemThatIsNoObjectAndStopsThere) {
  for (const char* const value : {"5", "\"x\"", "[]", "false"}) {
    Run(R"({"0": {"name": "a", "program": "/bin/sh"}, "1": )" +
        std::string(value) + R"(, "2": {"name": "c", "program": "/bin/sh"}})");
    ExpectError("item-type", "", "1:49");
    EXPECT_EQ(First().place.item, 1);
    EXPECT_EQ(result_.items.size(), 1U);
  }
}

TEST_F(Check, TellsANameThatIsNoText) {
  Run(R"({"0": {"name": ["a"], "program": "/bin/sh"}})");
  ExpectError("name-type", "name", "1:16");
}

TEST_F(Check, TellsAnItemWithoutAName) {
  Run(R"({"0": {"program": "/bin/sh"}, "1": null,
          "2": {"name": "c", "program": "/bin/sh"}})");
  EXPECT_EQ(Ids(), (Vector{"name-missing", "name-missing"}));
  EXPECT_EQ(First().rule->severity, Severity::kWarning);
  ASSERT_EQ(result_.items.size(), 3U);
  EXPECT_FALSE(result_.items[1].name);
  EXPECT_FALSE(result_.items[1].runs);
  EXPECT_TRUE(result_.items[2].runs);
}

TEST_F(Check, TellsEmptyNames) {
  Run(R"({"0": {"name": "", "program": "/bin/sh"}})");
  ExpectWarning("name-empty", "name", "1:16");
  Run(R"({"0": {"name": null, "program": "/bin/sh"}})");
  ExpectWarning("null", "name", "1:16");
}

TEST_F(Check, TellsANameThatIsTurnedIntoText) {
  Run(R"({"0": {"name": 3.14, "program": "/bin/sh"}})");
  ExpectWarning("converted", "name", "1:16");
  EXPECT_EQ(result_.items[0].name, "3.1400000000000001");
}

TEST_F(Check, TellsDuplicateNames) {
  Run(R"({"0": {"name": "a", "program": "/bin/sh"},
 "1": {"name": "a", "program": "/bin/sh"}, "2": {"name": "a",
 "program": "/bin/sh"}})");
  EXPECT_EQ(Ids(), (Vector{"name-duplicate", "name-duplicate"}));
  EXPECT_EQ(First().rule->severity, Severity::kWarning);
  EXPECT_EQ(First().place.item, 1);
  EXPECT_EQ(PlaceText(First()), "2:16");
  EXPECT_NE(All().at(1).problem.find("item 1"), std::string::npos);
  EXPECT_FALSE(result_.items[0].runs);
  EXPECT_FALSE(result_.items[1].runs);
  EXPECT_TRUE(result_.items[2].runs);
}

TEST_F(Check, TellsAProgramThatIsMissingOrEmpty) {
  Run(R"({"0": {"name": "a"}})");
  ExpectError("program-missing", "program", "1:7");
  EXPECT_NE(First().effect.find("process group"), std::string::npos);
  EXPECT_FALSE(result_.items[0].vector);
  Run(R"({"0": {"name": "a", "program": ""}})");
  ExpectError("program-empty", "program", "1:32");
  Run(R"({"0": {"name": "a", "program": null}})");
  ExpectError("program-empty", "program", "1:32");
  Run(R"({"0": {"name": "a", "program": "\u0000/bin/sh"}})");
  ExpectError("program-empty", "program", "1:32");
}

TEST_F(Check, TellsAProgramThatIsNoText) {
  Run(R"({"0": {"name": "a", "program": {}}})");
  ExpectError("program-type", "program", "1:32");
  EXPECT_NE(First().effect.find("SIGABRT"), std::string::npos);
}

TEST_F(Check, TellsAProgramThatCannotBeExecuted) {
  Run(R"({"0": {"name": "a", "program": "/no/such/file"}})");
  ExpectError("program-not-found", "program", "1:32");
  EXPECT_NE(First().effect.find("chain"), std::string::npos);
  EXPECT_EQ(result_.items[0].vector, Vector{"/no/such/file"});
}

TEST_F(Check, TellsARelativePath) {
  const std::string script = directory_.Write("script", "#!/bin/sh\n");
  chmod(script.c_str(), 0700);
  const std::string relative =
      std::filesystem::relative(script, std::filesystem::current_path());
  Run(R"({"0": {"name": "a", "program": ")" + relative + "\"}}");
  ExpectWarning("program-relative", "program", "1:32");
}

TEST_F(Check, TellsTextThatIsCutAtANul) {
  Run(R"({"0": {"name": "a", "program": "/bin/sh\u0000x"}})");
  ExpectWarning("cut-at-nul", "program", "1:32");
  EXPECT_EQ(result_.items[0].vector, Vector{"/bin/sh"});
}

TEST_F(Check, TellsAnArgcOfTheWrongType) {
  for (const char* const value :
       {"\"2\"", "{}", "[]", "18446744073709551615", "1e30"}) {
    Run(Item("\"argc\": " + std::string(value)));
    ExpectError("argc-type", "argc", "1:51");
    EXPECT_NE(First().effect.find("SIGABRT"), std::string::npos);
    EXPECT_FALSE(result_.items[0].vector);
  }
}

TEST_F(Check, TellsANegativeArgc) {
  for (const char* const value : {"-1", "-7", "4294967295"}) {
    Run(Item("\"argc\": " + std::string(value)));
    ExpectError("argc-negative", "argc", "1:51");
    EXPECT_EQ(result_.items[0].vector, Vector{});
  }
}

TEST_F(Check, TellsAnArgcThatDoesNotFit) {
  Run(Item(R"("argc": 4294967297, "args": {"0": "x"})"));
  ExpectError("argc-cut", "argc", "1:51");
  EXPECT_EQ(result_.items[0].vector, (Vector{"/bin/sh", "x"}));
}

TEST_F(Check, TellsAnArgcThatIsTurnedIntoAnInteger) {
  for (const char* const value : {"1.9", "true", "1.0"}) {
    Run(Item("\"argc\": " + std::string(value) + R"(, "args": {"0": "x"})"));
    ExpectWarning("argc-converted", "argc", "1:51");
    EXPECT_EQ(result_.items[0].vector, (Vector{"/bin/sh", "x"}));
  }
  Run(Item(R"("argc": null)"));
  ExpectWarning("argc-converted", "argc", "1:51");
}

TEST_F(Check, TellsAVectorThatNoStackHolds) {
  Run(Item(R"("argc": 65536)"));
  ExpectError("argc-too-large", "argc", "1:51");
  EXPECT_FALSE(result_.items[0].vector);
  Run(Item(R"("argc": 2147483647)"));
  ExpectError("argc-too-large", "argc", "1:51");
}

TEST_F(Check, TellsArgsOfTheWrongType) {
  for (const char* const value : {"[\"x\"]", "\"x\"", "5"}) {
    Run(Item("\"argc\": 1, \"args\": " + std::string(value)));
    ExpectError("args-type", "args", "1:62");
    EXPECT_FALSE(result_.items[0].vector);
  }
}

TEST_F(Check, TellsAnArgumentOfTheWrongType) {
  Run(Item(R"("argc": 2, "args": {"0": "x", "1": ["y"]})"));
  ExpectError("arg-type", "args/1", "1:78");
  EXPECT_FALSE(result_.items[0].vector);
}

TEST_F(Check, TellsArgumentsThatAreTurnedIntoText) {
  Run(Item(R"("argc": 3, "args": {"0": 5, "1": 1e5, "2": true})"));
  EXPECT_EQ(Ids(), (Vector{"converted", "converted", "converted"}));
  EXPECT_EQ(First().place.key, "args/0");
  EXPECT_EQ(result_.items[0].vector,
            (Vector{"/bin/sh", "5", "100000.0", "true"}));
}

TEST_F(Check, TellsANullArgument) {
  Run(Item(R"("argc": 1, "args": {"0": null})"));
  ExpectWarning("null", "args/0", "1:68");
  EXPECT_EQ(result_.items[0].vector, (Vector{"/bin/sh", ""}));
}

TEST_F(Check, TellsMissingArguments) {
  Run(Item(R"("argc": 4, "args": {"1": "x"})"));
  ExpectWarning("arg-missing", "args/0", "1:62");
  EXPECT_NE(First().problem.find("2 more"), std::string::npos);
  EXPECT_EQ(result_.items[0].vector, (Vector{"/bin/sh", "", "x", "", ""}));
  Run(Item(R"("argc": 1)"));
  ExpectWarning("arg-missing", "args/0", "1:7");
}

TEST_F(Check, TellsArgumentsThatAreNotRead) {
  Run(Item(R"("argc": 1, "args": {"0": "x", "1": "y", "00": "z", "a": 1})"));
  EXPECT_EQ(Ids(), (Vector{"arg-unread", "arg-unread", "arg-unread"}));
  EXPECT_EQ(First().place.key, "args/1");
  EXPECT_EQ(First().rule->severity, Severity::kWarning);
}

TEST_F(Check, TellsArgumentsWithoutArgc) {
  Run(Item(R"("args": {"0": "x", "1": "y", "3": "z"})"));
  ExpectWarning("args-without-argc", "args", "1:51");
  EXPECT_NE(First().advice.find("\"argc\": 2"), std::string::npos);
  EXPECT_EQ(result_.items[0].vector, Vector{"/bin/sh"});
  Run(Item(R"("argc": 0, "args": ["x"])"));
  ExpectWarning("args-without-argc", "args", "1:62");
  Run(Item(R"("argc": 0, "args": {})"));
  EXPECT_EQ(Ids(), Vector{});
}

TEST_F(Check, TellsKeysBehindAGap) {
  Run(R"({"0": {"name": "a", "program": "/bin/sh"}, "2": {}, "10": {}})");
  EXPECT_EQ(Ids(), (Vector{"gap", "gap"}));
  EXPECT_EQ(First().place.key, "2");
  EXPECT_EQ(PlaceText(First()), "1:44");
  EXPECT_NE(First().problem.find("\"1\""), std::string::npos);
  Run(R"({"1": {"name": "a", "program": "/bin/sh"}})");
  EXPECT_EQ(Ids(), (Vector{"gap", "no-items"}));
}

TEST_F(Check, TellsKeysThatAreNoIndices) {
  for (const char* const key : {"00", " 1", "+1", "-1", "1.0", "x", ""}) {
    Run(R"({"0": {"name": "a", "program": "/bin/sh"}, ")" + std::string(key) +
        "\": {}}");
    ExpectWarning("unknown-key", key, "1:44");
  }
}

TEST_F(Check, AllowsASchemaForEditors) {
  Run(R"({"$schema": "x", "0": {"name": "a", "program": "/bin/sh"}})");
  EXPECT_EQ(Ids(), Vector{});
}

TEST_F(Check, GuessesTheKeyThatWasMeant) {
  const auto advice = [&](const std::string& key) {
    Run(Item("\"" + key + "\": 1"));
    EXPECT_EQ(Ids(), Vector{"unknown-key"}) << key;
    return First().advice;
  };
  EXPECT_EQ(advice("Name"), "write \"name\" instead");
  EXPECT_EQ(advice("programm"), "write \"program\" instead");
  EXPECT_EQ(advice("ARGS"), "write \"args\" instead");
  EXPECT_EQ(advice("agrc"), "write \"argc\" instead");
  EXPECT_TRUE(advice("restart").starts_with("remove it;"));
}

TEST_F(Check, GuessesInItemsWithoutAName) {
  Run(R"({"0": {"nmae": "a", "program": "/bin/sh"}})");
  EXPECT_EQ(Ids(), (Vector{"name-missing", "unknown-key"}));
  EXPECT_EQ(All().at(1).advice, "write \"name\" instead");
}

TEST_F(Check, TellsMembersThatALaterOneReplaces) {
  Run(R"({"0": 5, "0": {"name": "a", "name": "b", "program": "/bin/sh",
 "argc": 1, "args": {"0": "x", "0": "y"}}})");
  EXPECT_EQ(Ids(), (Vector{"duplicate-key", "duplicate-key", "duplicate-key"}));
  EXPECT_EQ(result_.items[0].name, "b");
  EXPECT_EQ(result_.items[0].vector, (Vector{"/bin/sh", "y"}));
}

TEST_F(Check, TellsTextBehindTheDocument) {
  Run(Item("") + "\n}");
  ExpectWarning("trailing-text", "", "2:1");
}

// Versions of the JSON library differ in what they make of them.
TEST_F(Check, TellsRawControlCharacters) {
  Run(Item("\"argc\": 1, \"args\": {\"0\": \"a\tb\"}"));
  try {
    const JsonObject accepted("[\"\t\"]");
    ExpectWarning("raw-control", "", "1:68");
    EXPECT_EQ(result_.items.at(0).vector, (Vector{"/bin/sh", "a\tb"}));
  } catch (AERROR) {
    EXPECT_STREQ(First().rule->id, "not-json");
  }
}

TEST_F(Check, TellsAllFindingsOfAnItemWithoutAProgram) {
  Run(R"({"0": {"name": "a", "argc": "x"}})");
  EXPECT_EQ(Ids(), (Vector{"program-missing", "argc-type"}));
  EXPECT_TRUE(All().at(1).effect.starts_with("once the item has"));
}

}  // namespace
