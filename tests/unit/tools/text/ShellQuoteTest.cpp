#include <gtest/gtest.h>

#include "tests/support/Command.h"
#include "tools/text/ShellQuote.h"

TEST(ShellQuote, LeavesHarmlessWordsBare) {
  EXPECT_EQ(ShellQuoted("/usr/bin/a-b_c.d,e=f:g@h%i+"),
            "/usr/bin/a-b_c.d,e=f:g@h%i+");
}

TEST(ShellQuote, QuotesWordsThatAShellWouldSplit) {
  EXPECT_EQ(ShellQuoted(""), "''");
  EXPECT_EQ(ShellQuoted("a b"), "'a b'");
  EXPECT_EQ(ShellQuoted("it's"), "'it'\\''s'");
  EXPECT_EQ(ShellQuoted("~"), "'~'");
  EXPECT_EQ(ShellQuoted("é"), "'é'");
}

TEST(ShellQuote, WritesUnprintableBytesInOctal) {
  EXPECT_EQ(ShellQuoted("a\nb"), "$'a\\012b'");
  EXPECT_EQ(ShellQuoted("'\\\x01\xFF"), "$'\\'\\\\\\001\\377'");
}

TEST(ShellQuote, PutsOneBlankBetweenWords) {
  EXPECT_EQ(ShellQuoted(std::vector<std::string>{"a", "b c", ""}),
            "a 'b c' ''");
}

TEST(ShellQuote, IsReadBackByAShell) {
  std::string every_byte;
  for (int byte = 1; byte < 256; ++byte) {
    every_byte += static_cast<char>(byte);
  }
  for (const std::string& text :
       {every_byte, std::string("it's"), std::string("$(a) `b` \"c\" \\ !"),
        std::string("\x01"
                    "1"),
        std::string()}) {
    const std::string script = "printf %s " + ShellQuoted(text);
    EXPECT_EQ(RunCommand({"/bin/bash", "-c", script}).output, text);
  }
}
