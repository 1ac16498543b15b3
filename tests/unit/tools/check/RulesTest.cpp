#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "tests/support/Files.h"
#include "tools/check/Rules.h"

namespace {

TEST(Rules, HaveUniqueIds) {
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

// The words between backquotes at the start of the document's entries.
std::set<std::string> DocumentedIds() {
  std::istringstream document(
      ReadFile(std::string(SOURCE_DIRECTORY) + "/docs/sharp-edges.md"));
  std::set<std::string> ids;
  const std::string start = "- **`";
  for (std::string line; std::getline(document, line);) {
    if (line.starts_with(start)) {
      EXPECT_TRUE(
          ids.insert(line.substr(start.size(),
                                 line.find('`', start.size()) - start.size()))
              .second)
          << line;
    }
  }
  return ids;
}

// The rules that the manual page lists, as "id severity".
std::set<std::string> ListedIds() {
  std::istringstream page(
      ReadFile(std::string(SOURCE_DIRECTORY) + "/man/launcher-check.1"));
  std::set<std::string> ids;
  std::string severity;
  const std::string entry = ".It Cm ";
  for (std::string line; std::getline(page, line);) {
    if (line == ".Ss Errors") {
      severity = " error";
    } else if (line == ".Ss Warnings") {
      severity = " warning";
    } else if (line.starts_with(entry)) {
      EXPECT_TRUE(ids.insert(line.substr(entry.size()) + severity).second)
          << line;
    }
  }
  return ids;
}

TEST(Rules, AreExplainedInTheDocumentsOneByOne) {
  std::set<std::string> ids;
  std::set<std::string> listed;
  for (const Rule& rule : rules::kAll) {
    ids.insert(rule.id);
    listed.insert(std::string(rule.id) +
                  (rule.severity == Severity::kError ? " error" : " warning"));
  }
  EXPECT_EQ(DocumentedIds(), ids);
  EXPECT_EQ(ListedIds(), listed);
}

}  // namespace
