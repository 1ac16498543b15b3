#include <gtest/gtest.h>

#include "common/json/JsonObject.h"
#include "tools/check/Findings.h"

namespace {

TEST(Findings, HaveTheEffectAndAdviceOfTheirRule) {
  const RuleName rule = "gap";
  const Finding finding = Found(rule, {3, "x", 7}, "is odd");
  EXPECT_STREQ(finding.rule->id, rule->id);
  EXPECT_EQ(finding.place.item, 3);
  EXPECT_EQ(finding.place.key, "x");
  EXPECT_EQ(finding.place.offset, 7U);
  EXPECT_EQ(finding.problem, "is odd");
  EXPECT_EQ(finding.effect, rule->effect);
  EXPECT_EQ(finding.advice, rule->advice);
}

TEST(Findings, MayHaveTheirOwnAdvice) {
  const RuleName rule = "gap";
  EXPECT_EQ(Found(rule, {}, "is odd", "mend it").advice, "mend it");
  EXPECT_EQ(Found(rule, {}, "is odd", "").advice, rule->advice);
}

TEST(Findings, SayWhatTheLauncherLogs) {
  const RuleName rule = "name-missing";
  EXPECT_EQ(
      Found(rule, {}, "is missing").effect,
      std::string(rule->effect) + "; it logs \"" + kNamelessMessage + "\"");
}

TEST(Findings, AreCountedBySeverity) {
  const Finding error = Found("empty", {}, "");
  const Finding warning = Found("null", {}, "");
  const Findings findings{error, warning, error};
  EXPECT_EQ(CountFindings(findings, Severity::kError), 2U);
  EXPECT_EQ(CountFindings(findings, Severity::kWarning), 1U);
}

// The line and column of the byte at `offset`.
std::pair<std::size_t, std::size_t> PlaceOf(const std::string& text,
                                            std::size_t offset) {
  Findings findings{Found("nul", {{}, "", offset}, "")};
  CountLines(text, findings);
  return {findings[0].place.line, findings[0].place.column};
}

TEST(Findings, AreLocatedByLineAndCharacterFromOne) {
  using Pair = std::pair<std::size_t, std::size_t>;
  const std::string text = "ab\ncé数x\n";
  EXPECT_EQ(PlaceOf(text, 0), Pair(1, 1));
  EXPECT_EQ(PlaceOf(text, 2), Pair(1, 3));
  EXPECT_EQ(PlaceOf(text, 3), Pair(2, 1));
  EXPECT_EQ(PlaceOf(text, 9), Pair(2, 4));
  EXPECT_EQ(PlaceOf(text, 99), Pair(3, 1));
}

TEST(Findings, AreLocatedInAnyOrder) {
  const RuleName rule = "nul";
  Findings findings{Found(rule, {{}, "", 4}, ""), Found(rule, {{}, "", 1}, ""),
                    Found(rule, {}, ""), Found(rule, {{}, "", 3}, "")};
  CountLines("a\nbcd", findings);
  EXPECT_EQ(findings[0].place.column, 3U);
  EXPECT_EQ(findings[1].place.line, 1U);
  EXPECT_EQ(findings[2].place.line, 0U);
  EXPECT_EQ(findings[3].place.column, 2U);
}

const RuleName kOdd = "unknown-key";
const RuleName kBad = "gap";

CheckResult Example() {
  CheckResult result;
  result.readable = true;
  result.items = {{0, "a\x1b", true, {{"/bin/echo", "a b"}}},
                  {1, {}, false, {}},
                  {2, "c", false, std::vector<std::string>{}},
                  {3, "d", true, {}}};
  result.findings = {{kOdd, {}, "was read oddly", "it is lost", "drop it"},
                     {kOdd, {0, "k\n", 4}, "is odd", "it is lost", "drop it"},
                     {kBad, {4, "", {}}, "is worse", "it ends", "mend it"},
                     {kBad, {}, "is bad", "it ends", "mend it"}};
  CountLines("{\n  x", result.findings);
  return result;
}

TEST(CheckReport, ShowsItemsInOrderWithTheirFindings) {
  EXPECT_EQ(TextReport("i.json", Example(), false),
            "i.json: warning: the file was read oddly [unknown-key]\n"
            "    effect: it is lost\n"
            "    fix: drop it\n"
            "0 a\\x1b: /bin/echo 'a b'\n"
            "i.json:2:3: warning: item 0: \"k\\x0a\" is odd [unknown-key]\n"
            "    effect: it is lost\n"
            "    fix: drop it\n"
            "1 (no name): skipped\n"
            "2 c: (no arguments at all) (replaced by a later item)\n"
            "3 d: never starts its program\n"
            "i.json: error: item 4 is worse [gap]\n"
            "    effect: it ends\n"
            "    fix: mend it\n"
            "i.json: error: the file is bad [gap]\n"
            "    effect: it ends\n"
            "    fix: mend it\n"
            "4 items, 2 errors, 2 warnings\n");
}

TEST(CheckReport, ColoursNamesAndSeverities) {
  const std::string text = TextReport("i.json", Example(), true);
  EXPECT_NE(text.find("\x1b[1;31merror:\x1b[0m"), std::string::npos);
  EXPECT_NE(text.find("\x1b[1;33mwarning:\x1b[0m"), std::string::npos);
}

TEST(CheckReport, IsAJsonDocument) {
  JsonObject report(JsonReport("i\xFF.json", Example()).c_str());
  EXPECT_EQ(static_cast<std::string>(report["file"]), "i\uFFFD.json");
  EXPECT_EQ(static_cast<int>(report["errors"]), 2);
  EXPECT_EQ(static_cast<int>(report["warnings"]), 2);
  EXPECT_TRUE(static_cast<bool>(report["readable"]));
  JsonObject first = report["items"][0];
  EXPECT_EQ(static_cast<int>(first["index"]), 0);
  EXPECT_EQ(static_cast<std::string>(first["name"]), "a\x1b");
  EXPECT_TRUE(static_cast<bool>(first["runs"]));
  EXPECT_EQ(first["vector"].ToText(), R"(["/bin/echo","a b"])");
  EXPECT_EQ(static_cast<std::string>(first["command"]), "/bin/echo 'a b'");
  EXPECT_FALSE(report["items"][1]["name"].IsValid());
  EXPECT_FALSE(report["items"][1]["vector"].IsValid());
  JsonObject finding = report["findings"][1];
  EXPECT_EQ(static_cast<std::string>(finding["severity"]), "warning");
  EXPECT_EQ(static_cast<std::string>(finding["id"]), "unknown-key");
  EXPECT_EQ(static_cast<int>(finding["line"]), 2);
  EXPECT_EQ(static_cast<int>(finding["column"]), 3);
  EXPECT_EQ(static_cast<int>(finding["item"]), 0);
  EXPECT_EQ(static_cast<std::string>(finding["key"]), "k\n");
  EXPECT_EQ(static_cast<std::string>(finding["problem"]), "is odd");
  EXPECT_EQ(static_cast<std::string>(finding["effect"]), "it is lost");
  EXPECT_EQ(static_cast<std::string>(finding["advice"]), "drop it");
  EXPECT_FALSE(report["findings"][2].HasObject("line"));
}

}  // namespace
