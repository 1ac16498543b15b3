// Checks the text of an items file and compares the findings.

#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/TempDir.h"
#include "tools/check/Check.h"

using Vector = std::vector<std::string>;

// An item with a name, a program that exists, and the members `rest`.
inline std::string Item(const std::string& rest) {
  return R"({"0": {"name": "a", "program": "/bin/sh")" +
         (rest.empty() ? rest : ", " + rest) + "}}";
}

class Check : public testing::Test {
 protected:
  void Run(const std::string& text) {
    result_ = CheckItems(ReadItemsFile(directory_.Write("items.json", text)));
  }

  Vector Ids() const {
    Vector ids;
    for (const Finding& finding : All()) {
      ids.push_back(finding.rule->id);
    }
    return ids;
  }

  // Expects exactly one finding, at the place "line:column".
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

  const Findings& All() const { return result_.findings; }
  const Finding& First() const { return All().at(0); }

  TempDir directory_;
  CheckResult result_;
};
