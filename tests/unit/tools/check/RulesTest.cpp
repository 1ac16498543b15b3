#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tools/check/Rules.h"

namespace {

TEST(Rules, HaveIdsOfTheirOwn) {
  std::set<std::string> ids;
  for (const Rule& rule : rules::kAll) {
    EXPECT_TRUE(ids.insert(rule.id).second) << rule.id;
  }
}

TEST(Rules, SayWhatHappensAndWhatToDo) {
  for (const Rule& rule : rules::kAll) {
    EXPECT_FALSE(std::string(rule.effect).empty()) << rule.id;
    EXPECT_FALSE(std::string(rule.advice).empty()) << rule.id;
  }
}

}  // namespace
