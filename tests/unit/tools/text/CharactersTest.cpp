#include <gtest/gtest.h>

#include "tests/support/Command.h"
#include "tools/text/Characters.h"

TEST(Characters, ShowsControlCharactersAsBytes) {
  EXPECT_EQ(Printable("a\nb"), "a\\x0ab");
  EXPECT_EQ(Printable("\x1b[31m\x7f"), "\\x1b[31m\\x7f");
  EXPECT_EQ(Printable("\xC2\x9B"), "\\xc2\\x9b");
}

TEST(Characters, QuotesText) { EXPECT_EQ(Quoted("a\nb"), "\"a\\x0ab\""); }

TEST(Characters, LeavesOtherAlphabetsUnchanged) {
  EXPECT_EQ(Printable("näh 数 😀"), "näh 数 😀");
}

TEST(Characters, ShowsInvalidUtf8AsBytes) {
  EXPECT_EQ(Printable("a\xFFz"), "a\\xffz");
  EXPECT_EQ(Printable("\xC0\x80"), "\\xc0\\x80");           // overlong
  EXPECT_EQ(Printable("\xED\xA0\x80"), "\\xed\\xa0\\x80");  // a surrogate
  EXPECT_EQ(Printable("\xF4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
  EXPECT_EQ(Printable("\xE2\x82"), "\\xe2\\x82");  // cut
}

TEST(Characters, ReplacesInvalidUtf8ByteByByte) {
  EXPECT_EQ(ValidUtf8("a\xFF\xC3("), "a\uFFFD\uFFFD(");
  EXPECT_EQ(ValidUtf8("é\n"), "é\n");
}

TEST(Characters, CountsTheColumnsOfATerminal) {
  EXPECT_EQ(DisplayWidth("abc"), 3U);
  EXPECT_EQ(DisplayWidth("é"), 1U);
  EXPECT_EQ(DisplayWidth("数"), 2U);
  EXPECT_EQ(DisplayWidth("e\u0301"), 1U);  // a combining accent
}

TEST(Characters, CutsToAWidth) {
  EXPECT_EQ(Cut("ab", 4), "ab");
  EXPECT_EQ(Cut("abcd", 4), "abcd");
  EXPECT_EQ(Cut("abcde", 4), "abc…");
  EXPECT_EQ(Cut("数数数", 4), "数…");
  EXPECT_EQ(Cut("abc", 1), "…");
}

TEST(Characters, PadsAndCutsToAWidth) {
  EXPECT_EQ(Fitted("ab", 4), "ab  ");
  EXPECT_EQ(Fitted("abcd", 4), "abcd");
  EXPECT_EQ(Fitted("abcde", 4), "abc…");
  EXPECT_EQ(Fitted("数数数", 4), "数… ");
  EXPECT_EQ(Fitted("", 2), "  ");
}

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
