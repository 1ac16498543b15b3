#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/json/JsonObject.h"
#include "tools/check/Report.h"

namespace {

constexpr Rule kOdd{"odd", Severity::kWarning, "it is lost", "drop it"};
constexpr Rule kBad{"bad", Severity::kError, "it ends", "mend it"};

CheckResult Example() {
  CheckResult result;
  result.readable = true;
  result.items.push_back({0, "a\x1b", true, {{"/bin/echo", "a b"}}, {}});
  result.items[0].findings.push_back(Found(kOdd, {0, "k\n", 4}, "is odd"));
  result.items.push_back({1, {}, false, {}, {}});
  result.items.push_back({2, "c", false, std::vector<std::string>{}, {}});
  result.items.push_back({3, "d", true, {}, {}});
  result.findings.push_back(Found(kBad, {}, "is bad"));
  result.findings.push_back(Found(kBad, {4, "", {}}, "is worse"));
  CountLines("{\n  x", result);
  return result;
}

TEST(CheckReport, ShowsItemsInOrderWithTheirFindings) {
  EXPECT_EQ(TextReport("i.json", Example(), false),
            "0 a\\x1b: /bin/echo 'a b'\n"
            "i.json:2:3: warning: item 0: \"k\\x0a\" is odd [odd]\n"
            "    effect: it is lost\n"
            "    fix: drop it\n"
            "1 (no name): skipped\n"
            "2 c: (no arguments at all) (replaced by a later item)\n"
            "3 d: never starts its program\n"
            "i.json: error: the file is bad [bad]\n"
            "    effect: it ends\n"
            "    fix: mend it\n"
            "i.json: error: item 4 is worse [bad]\n"
            "    effect: it ends\n"
            "    fix: mend it\n"
            "4 items, 2 errors, 1 warning\n");
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
  EXPECT_EQ(static_cast<int>(report["warnings"]), 1);
  EXPECT_TRUE(static_cast<bool>(report["readable"]));
  JsonObject first = report["items"][0];
  EXPECT_EQ(static_cast<int>(first["index"]), 0);
  EXPECT_EQ(static_cast<std::string>(first["name"]), "a\x1b");
  EXPECT_TRUE(static_cast<bool>(first["runs"]));
  EXPECT_EQ(first["vector"].ToText(), R"(["/bin/echo","a b"])");
  EXPECT_EQ(static_cast<std::string>(first["command"]), "/bin/echo 'a b'");
  EXPECT_FALSE(report["items"][1]["name"].IsValid());
  EXPECT_FALSE(report["items"][1]["vector"].IsValid());
  JsonObject finding = report["findings"][0];
  EXPECT_EQ(static_cast<std::string>(finding["severity"]), "warning");
  EXPECT_EQ(static_cast<std::string>(finding["id"]), "odd");
  EXPECT_EQ(static_cast<int>(finding["line"]), 2);
  EXPECT_EQ(static_cast<int>(finding["column"]), 3);
  EXPECT_EQ(static_cast<int>(finding["item"]), 0);
  EXPECT_EQ(static_cast<std::string>(finding["key"]), "k\n");
  EXPECT_EQ(static_cast<std::string>(finding["problem"]), "is odd");
  EXPECT_EQ(static_cast<std::string>(finding["effect"]), "it is lost");
  EXPECT_EQ(static_cast<std::string>(finding["advice"]), "drop it");
  EXPECT_FALSE(report["findings"][1].HasObject("line"));
}

}  // namespace
