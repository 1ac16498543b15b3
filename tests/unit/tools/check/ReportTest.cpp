#include <gtest/gtest.h>

#include "common/json/JsonObject.h"
#include "tools/check/Report.h"

namespace {

CheckResult Example() {
  CheckResult result;
  result.readable = true;
  result.text = "{\n  x";
  result.items.push_back({0, "a\x1b", true, {{"/bin/echo", "a b"}}});
  result.items.push_back({1, {}, false, {}});
  result.items.push_back({2, "c", false, std::vector<std::string>{}});
  result.findings.push_back({Severity::kWarning, "unknown-key", 4, 0, "k\n",
                             "is odd", "it is lost", "drop it"});
  result.findings.push_back(
      {Severity::kError, "nul", {}, {}, "", "is bad", "it ends", "mend it"});
  return result;
}

TEST(CheckReport, ShowsItemsInOrderWithTheirFindings) {
  EXPECT_EQ(TextReport("i.json", Example(), false),
            "0 a\\x1b: /bin/echo 'a b'\n"
            "i.json:2:3: warning: item 0, \"k\\x0a\": is odd\n"
            "    what happens: it is lost\n"
            "    instead: drop it\n"
            "1 (no name): skipped\n"
            "2 c: (no arguments at all) (replaced by a later item)\n"
            "i.json: error: is bad\n"
            "    what happens: it ends\n"
            "    instead: mend it\n"
            "3 items, 1 error, 1 warning\n");
}

TEST(CheckReport, ColoursNamesAndSeverities) {
  const std::string text = TextReport("i.json", Example(), true);
  EXPECT_NE(text.find("\x1b[1;31merror:\x1b[0m"), std::string::npos);
  EXPECT_NE(text.find("\x1b[1;33mwarning:\x1b[0m"), std::string::npos);
}

TEST(CheckReport, IsAJsonDocument) {
  JsonObject report(JsonReport("i\xFF.json", Example()).c_str());
  EXPECT_EQ(static_cast<std::string>(report["file"]), "i\uFFFD.json");
  EXPECT_EQ(static_cast<int>(report["errors"]), 1);
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
  EXPECT_EQ(static_cast<std::string>(finding["id"]), "unknown-key");
  EXPECT_EQ(static_cast<int>(finding["line"]), 2);
  EXPECT_EQ(static_cast<int>(finding["column"]), 3);
  EXPECT_EQ(static_cast<int>(finding["item"]), 0);
  EXPECT_EQ(static_cast<std::string>(finding["key"]), "k\n");
  EXPECT_EQ(static_cast<std::string>(finding["effect"]), "it is lost");
  EXPECT_FALSE(report["findings"][1].HasObject("line"));
}

}  // namespace
