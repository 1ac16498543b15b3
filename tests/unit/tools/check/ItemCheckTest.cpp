#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "launcher/Items.h"
#include "tests/support/ForkedChild.h"
#include "tests/unit/tools/check/CheckFixture.h"
#include "tools/check/ProgramFile.h"

namespace {

class ItemCheck : public Check {};

TEST_F(ItemCheck, FindsEmptyNames) {
  Run(R"({"0": {"name": "", "program": "/bin/sh"}})");
  ExpectWarning("name-empty", "name", "1:16");
  Run(R"({"0": {"name": null, "program": "/bin/sh"}})");
  ExpectWarning("null", "name", "1:16");
}

TEST_F(ItemCheck, FindsANameThatIsReadAsAText) {
  Run(R"({"0": {"name": 3.14, "program": "/bin/sh"}})");
  ExpectWarning("converted", "name", "1:16");
  EXPECT_EQ(result_.items[0].name, "3.1400000000000001");
}

TEST_F(ItemCheck, FindsAProgramThatIsMissingOrEmpty) {
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

TEST_F(ItemCheck, FindsAProgramThatIsNotAString) {
  Run(R"({"0": {"name": "a", "program": {}}})");
  ExpectError("program-type", "program", "1:32");
  EXPECT_NE(First().effect.find("SIGABRT"), std::string::npos);
}

TEST_F(ItemCheck, FindsAProgramThatCannotBeExecuted) {
  Run(R"({"0": {"name": "a", "program": "/no/such/file"}})");
  ExpectError("program-not-found", "program", "1:32");
  EXPECT_NE(First().effect.find("chain"), std::string::npos);
  EXPECT_EQ(result_.items[0].vector, Vector{"/no/such/file"});
}

TEST_F(ItemCheck, FindsARelativePath) {
  const std::string script = directory_.Write("script", "#!/bin/sh\n");
  chmod(script.c_str(), 0700);
  const std::string relative =
      std::filesystem::relative(script, std::filesystem::current_path());
  Run(R"({"0": {"name": "a", "program": ")" + relative + "\"}}");
  ExpectWarning("program-relative", "program", "1:32");
}

TEST_F(ItemCheck, FindsTextThatIsCutAtANul) {
  Run(R"({"0": {"name": "a", "program": "/bin/sh\u0000x"}})");
  ExpectWarning("cut-at-nul", "program", "1:32");
  EXPECT_EQ(result_.items[0].vector, Vector{"/bin/sh"});
}

TEST_F(ItemCheck, FindsAnArgcOfTheWrongType) {
  for (const char* const value :
       {"\"2\"", "{}", "[]", "18446744073709551615", "1e30"}) {
    Run(Item("\"argc\": " + std::string(value)));
    ExpectError("argc-type", "argc", "1:51");
    EXPECT_NE(First().effect.find("SIGABRT"), std::string::npos);
    EXPECT_FALSE(result_.items[0].vector);
  }
}

TEST_F(ItemCheck, FindsANegativeArgc) {
  for (const char* const value :
       {"-1", "-7", "4294967295", "9223372036854775807"}) {
    Run(Item("\"argc\": " + std::string(value)));
    ExpectError("argc-negative", "argc", "1:51");
    EXPECT_EQ(result_.items[0].vector, Vector{});
  }
  EXPECT_EQ(First().problem,
            "9223372036854775807 is cut to 32 bits, which gives -1");
}

TEST_F(ItemCheck, FindsAnArgcThatDoesNotFit) {
  Run(Item(R"("argc": 4294967297, "args": {"0": "x"})"));
  ExpectError("argc-cut", "argc", "1:51");
  EXPECT_EQ(result_.items[0].vector, (Vector{"/bin/sh", "x"}));
}

TEST_F(ItemCheck, FindsAnArgcThatIsReadAsAnInteger) {
  for (const char* const value : {"1.9", "true", "1.0"}) {
    Run(Item("\"argc\": " + std::string(value) + R"(, "args": {"0": "x"})"));
    ExpectWarning("argc-converted", "argc", "1:51");
    EXPECT_EQ(result_.items[0].vector, (Vector{"/bin/sh", "x"}));
  }
  Run(Item(R"("argc": null)"));
  ExpectWarning("argc-converted", "argc", "1:51");
}

TEST_F(ItemCheck, FindsAVectorTooLargeForTheStack) {
  for (const std::int64_t value :
       {std::int64_t{65536}, std::int64_t{63950}, kLargestArgc + 1}) {
    Run(Item("\"argc\": " + std::to_string(value)));
    ExpectError("argc-too-large", "argc", "1:51");
    EXPECT_FALSE(result_.items[0].vector);
  }
  Run(Item("\"argc\": " + std::to_string(kLargestArgc)));
  ExpectWarning("arg-missing", "args/0", "1:7");
  Run(Item(R"("argc": 2147483647)"));
  ExpectError("argc-too-large", "argc", "1:51");
}

TEST_F(ItemCheck, FindsArgsOfTheWrongType) {
  for (const char* const value : {"[\"x\"]", "\"x\"", "5"}) {
    Run(Item("\"argc\": 1, \"args\": " + std::string(value)));
    ExpectError("args-type", "args", "1:62");
    EXPECT_FALSE(result_.items[0].vector);
  }
}

TEST_F(ItemCheck, FindsAnArgumentOfTheWrongType) {
  Run(Item(R"("argc": 2, "args": {"0": "x", "1": ["y"]})"));
  ExpectError("arg-type", "args/1", "1:78");
  EXPECT_FALSE(result_.items[0].vector);
}

TEST_F(ItemCheck, FindsArgumentsThatAreReadAsTexts) {
  Run(Item(R"("argc": 3, "args": {"0": 5, "1": 1e5, "2": true})"));
  EXPECT_EQ(Ids(), (Vector{"converted", "converted", "converted"}));
  EXPECT_EQ(First().place.key, "args/0");
  EXPECT_EQ(result_.items[0].vector,
            (Vector{"/bin/sh", "5", "100000.0", "true"}));
}

TEST_F(ItemCheck, FindsANullArgument) {
  Run(Item(R"("argc": 1, "args": {"0": null})"));
  ExpectWarning("null", "args/0", "1:68");
  EXPECT_EQ(result_.items[0].vector, (Vector{"/bin/sh", ""}));
}

TEST_F(ItemCheck, FindsMissingArguments) {
  Run(Item(R"("argc": 4, "args": {"1": "x"})"));
  ExpectWarning("arg-missing", "args/0", "1:62");
  EXPECT_NE(First().problem.find("2 more"), std::string::npos);
  EXPECT_EQ(result_.items[0].vector, (Vector{"/bin/sh", "", "x", "", ""}));
  Run(Item(R"("argc": 1)"));
  ExpectWarning("arg-missing", "args/0", "1:7");
}

TEST_F(ItemCheck, FindsArgumentsThatAreNotRead) {
  Run(Item(R"("argc": 1, "args": {"0": "x", "1": "y", "00": "z", "a": 1})"));
  EXPECT_EQ(Ids(), (Vector{"arg-unread", "arg-unread", "arg-unread"}));
  EXPECT_EQ(First().place.key, "args/1");
  EXPECT_EQ(First().rule->severity, Severity::kWarning);
}

TEST_F(ItemCheck, FindsArgumentsWithoutArgc) {
  Run(Item(R"("args": {"0": "x", "1": "y", "3": "z"})"));
  ExpectWarning("args-without-argc", "args", "1:51");
  EXPECT_NE(First().advice.find("\"argc\": 2"), std::string::npos);
  EXPECT_EQ(result_.items[0].vector, Vector{"/bin/sh"});
  Run(Item(R"("argc": 0, "args": ["x"])"));
  ExpectWarning("args-without-argc", "args", "1:62");
  Run(Item(R"("argc": 0, "args": {})"));
  EXPECT_EQ(Ids(), Vector{});
}

TEST_F(ItemCheck, GuessesTheIntendedKey) {
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

TEST_F(ItemCheck, GuessesInItemsWithoutAName) {
  Run(R"({"0": {"nmae": "a", "program": "/bin/sh"}})");
  EXPECT_EQ(Ids(), (Vector{"name-missing", "unknown-key"}));
  EXPECT_EQ(All().at(1).advice, "write \"name\" instead");
}

TEST_F(ItemCheck, ChecksTheArgumentsOfAnItemWithoutAProgram) {
  Run(R"({"0": {"name": "a", "argc": "x"}})");
  EXPECT_EQ(Ids(), (Vector{"program-missing", "argc-type"}));
  EXPECT_TRUE(All().at(1).effect.starts_with("once the item has"));
}

TEST_F(ItemCheck, SaysWhichTextTheLauncherReads) {
  Run(Item(R"("argc": 1, "args": {"0": 3.14})"));
  EXPECT_EQ(First().problem,
            "is a number, not a string, and read as \"3.1400000000000001\"");
  Run(Item(R"("argc": true, "args": {"0": "x"})"));
  EXPECT_EQ(First().problem, "is a boolean, not an integer, and read as 1");
}

TEST_F(ItemCheck, SaysWhichArgumentsAreRead) {
  Run(Item(R"("argc": 2, "args": {"0": "x", "1": "y", "2": "z"})"));
  EXPECT_EQ(First().problem,
            "is not read; the keys that are read are \"0\" to \"1\"");
}

TEST_F(ItemCheck, FindsAnArgumentThatIsTooLong) {
  if (kLongestArgumentBytes > LargestArgumentsBytes()) {
    GTEST_SKIP() << "one argument alone has no limit here";
  }
  const auto argument = [](std::size_t bytes) {
    return Item(R"("argc": 2, "args": {"0": "x", "1": ")" +
                std::string(bytes, 'x') + "\"}");
  };
  Run(argument(kLongestArgumentBytes));
  ExpectError("arg-too-long", "args/1", "1:78");
  Run(argument(kLongestArgumentBytes - 1));
  EXPECT_EQ(Ids(), Vector{});
  Run(R"({"0": {"name": "a", "argc": 1, "args": {"0": ")" +
      std::string(kLongestArgumentBytes, 'x') + "\"}}}");
  EXPECT_EQ(Ids(), (Vector{"program-missing", "arg-too-long"}));
  EXPECT_EQ(All()[1].place.key, "args/0");
}

TEST_F(ItemCheck, DoesNotCountALongPathAsAnArgument) {
  Run(R"({"0": {"name": "a", "program": "/)" +
      std::string(kLongestArgumentBytes, 'x') + R"("}})");
  EXPECT_EQ(Ids(), Vector{"program-not-found"});
}

// Whether the system executes `words`.
bool IsExecuted(Vector words) {
  return InForkedChild([&] {
           std::vector<char*> vector;
           for (std::string& word : words) {
             vector.push_back(word.data());
           }
           vector.push_back(nullptr);
           execv(words[0].c_str(), vector.data());
           return 1;
         }) == 0;
}

TEST_F(ItemCheck, FindsArgumentsThatAreTooLargeTogether) {
  // The environment and the pointers leave room for fewer than `most`.
  const std::size_t bytes = std::size_t{64} * 1024;
  const auto most = static_cast<int>(LargestArgumentsBytes() / bytes);
  const auto item = [&](std::size_t last) {
    std::string args;
    for (int i = 0; i < most; ++i) {
      args += (i == 0 ? "\"" : ", \"") + std::to_string(i) + "\": \"" +
              std::string(i + 1 < most ? bytes : last, 'x') + "\"";
    }
    return R"({"0": {"name": "a", "program": "/bin/true", "argc": )" +
           std::to_string(most) + R"(, "args": {)" + args + "}}}";
  };
  std::size_t good = 1;
  std::size_t bad = bytes;
  Run(item(bad));
  EXPECT_EQ(Ids(), Vector{"args-too-large"});
  while (bad - good > 1) {
    const std::size_t middle = (good + bad) / 2;
    Run(item(middle));
    (Ids().empty() ? good : bad) = middle;
  }
  Run(item(good));
  EXPECT_EQ(Ids(), Vector{});
  EXPECT_TRUE(IsExecuted(*result_.items[0].vector));
  Run(item(bad));
  EXPECT_FALSE(IsExecuted(*result_.items[0].vector));
}

}  // namespace
