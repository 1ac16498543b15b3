#include <gtest/gtest.h>

#include "tools/check/Findings.h"

namespace {

TEST(Findings, HaveTheEffectAndAdviceOfTheirRule) {
  const RuleName rule = "gap";
  const Finding finding = Found(rule, {3, "x", 7}, "is odd");
  EXPECT_EQ(&*finding.rule, &*rule);
  EXPECT_EQ(finding.place.item, 3);
  EXPECT_EQ(finding.place.key, "x");
  EXPECT_EQ(finding.place.offset, 7U);
  EXPECT_EQ(finding.problem, "is odd");
  EXPECT_EQ(finding.effect, rule->effect);
  EXPECT_EQ(finding.advice, rule->advice);
}

TEST(Findings, MayHaveAnAdviceOfTheirOwn) {
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
  CheckResult result;
  result.items.resize(2);
  result.items[0].findings = {error, warning};
  result.items[1].findings = {warning};
  result.findings = {error, warning, error};
  EXPECT_EQ(CountFindings(result, Severity::kError), 3U);
  EXPECT_EQ(CountFindings(result, Severity::kWarning), 3U);
}

// The line and column of the byte at `offset`.
std::pair<std::size_t, std::size_t> PlaceOf(const std::string& text,
                                            std::size_t offset) {
  CheckResult result;
  result.findings = {Found("nul", {{}, "", offset}, "")};
  CountLines(text, result);
  return {result.findings[0].place.line, result.findings[0].place.column};
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
  CheckResult result;
  const RuleName rule = "nul";
  result.items.resize(1);
  result.items[0].findings = {Found(rule, {{}, "", 4}, ""),
                              Found(rule, {{}, "", 1}, ""),
                              Found(rule, {}, "")};
  result.findings = {Found(rule, {{}, "", 3}, "")};
  CountLines("a\nbcd", result);
  EXPECT_EQ(result.items[0].findings[0].place.column, 3U);
  EXPECT_EQ(result.items[0].findings[1].place.line, 1U);
  EXPECT_EQ(result.items[0].findings[2].place.line, 0U);
  EXPECT_EQ(result.findings[0].place.column, 2U);
}

}  // namespace
