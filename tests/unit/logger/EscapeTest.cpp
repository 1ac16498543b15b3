#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "logger/Escape.h"

namespace {

using namespace std::string_view_literals;

std::string Escaped(std::string_view text) {
  std::string out(text.size() * kEscapedByteBytes, '\0');
  out.resize(static_cast<std::size_t>(Escape(text, out.data()) - out.data()));
  return out;
}

std::string Hex(unsigned byte) {
  std::array<char, 5> text{};
  std::snprintf(text.data(), text.size(), "\\x%02x", byte);
  return text.data();
}

// Undoes the three escapes, independently of the code under test.
std::string Unescaped(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      out += text[i];
    } else if (const char kind = text[++i]; kind != 'x') {
      out += kind == 'n' ? '\n' : kind;
    } else {
      out += static_cast<char>(
          std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
      i += 2;
    }
  }
  return out;
}

TEST(Escape, FollowsTheExamples) {
  EXPECT_EQ(Escaped("a\nb"), "a\\nb");
  EXPECT_EQ(Escaped("\x1b[31m"), "\\x1b[31m");
  EXPECT_EQ(Escaped("C:\\temp"), "C:\\\\temp");
}

TEST(Escape, EscapesEveryAsciiControlCharacter) {
  for (unsigned byte = 0; byte < 0x80; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    const bool control = byte < 0x20 || byte == 0x7F;
    const std::string expected = byte == '\n'   ? "\\n"
                                 : byte == '\\' ? "\\\\"
                                 : control      ? Hex(byte)
                                                : text;
    EXPECT_EQ(Escaped(text), expected) << byte;
    EXPECT_EQ(IsPlain(text), expected == text) << byte;
  }
}

TEST(Escape, ChecksEveryByteOfALongText) {
  for (std::size_t i = 0; i < 100; ++i) {
    std::string text(100, 'x');
    EXPECT_TRUE(IsPlain(text));
    text[i] = '\n';
    EXPECT_FALSE(IsPlain(text)) << i;
  }
}

TEST(Escape, LeavesOtherAlphabetsAlone) {
  for (const std::string_view text :
       {"\u00A0",     "Größe",  "\u07FF", "\u0800",     "日本語",
        "\uD7FF",     "\uE000", "\uFFFD", "\U00010000", "🚀",
        "\U0010FFFF", "\u2027", "\u061B", "\u061D",     "\u200D",
        "\u2010",     "\u202F", "\u2065", "\u206A",     ""}) {
    EXPECT_TRUE(IsPlain(text)) << text;
    EXPECT_EQ(Escaped(text), text);
  }
}

TEST(Escape, EscapesTheOtherControlCharactersAndLineEnds) {
  EXPECT_EQ(Escaped("\u0080"), "\\xc2\\x80");
  EXPECT_EQ(Escaped("a\u0085b"), "a\\xc2\\x85b");
  EXPECT_EQ(Escaped("\u009F"), "\\xc2\\x9f");
  EXPECT_EQ(Escaped("\u2028"), "\\xe2\\x80\\xa8");
  EXPECT_EQ(Escaped("\u2029"), "\\xe2\\x80\\xa9");
}

TEST(Escape, EscapesTheMarksThatChangeTheReadingDirection) {
  for (const std::string_view mark :
       {"\u061C", "\u200E", "\u200F", "\u202A", "\u202B", "\u202C", "\u202D",
        "\u202E", "\u2066", "\u2067", "\u2068", "\u2069"}) {
    std::string expected;
    for (const char c : mark) {
      expected += Hex(static_cast<unsigned char>(c));
    }
    EXPECT_EQ(Escaped(mark), expected);
    EXPECT_FALSE(IsPlain(mark)) << expected;
  }
}

TEST(Escape, WritesBytesThatAreNotUtf8OneByOne) {
  const std::vector<std::string_view> invalid = {
      "\x80",              // a continuation byte alone
      "\xBF\xBF",          //
      "\xC0\x80",          // overlong
      "\xC1\xBF",          //
      "\xE0\x9F\xBF",      //
      "\xF0\x8F\xBF\xBF",  //
      "\xED\xA0\x80",      // surrogates
      "\xED\xBF\xBF",      //
      "\xF4\x90\x80\x80",  // beyond U+10FFFF
      "\xF5\x80\x80\x80",  //
      "\xFE",              // never used
      "\xFF",              //
      "\xC3",              // cut off
      "\xE2\x82",          //
      "\xF0\x9F\x9A",      //
  };
  for (const std::string_view text : invalid) {
    std::string expected;
    for (const char c : text) {
      expected += Hex(static_cast<unsigned char>(c));
    }
    EXPECT_EQ(Escaped(text), expected);
    EXPECT_FALSE(IsPlain(text)) << expected;
    EXPECT_EQ(Escaped("a" + std::string(text) + "z"), "a" + expected + "z");
  }
}

TEST(Escape, LosesNothing) {
  // All texts of up to five of these: whole characters, parts and escapes.
  constexpr std::array kPieces{"\n"sv,   "\\"sv,   "n"sv,           "x0a"sv,
                               "\xC3"sv, "\xB6"sv, "\xE2"sv,        "\x80"sv,
                               "\xA8"sv, "\0"sv,   "\xF0\x9F\x9A"sv};
  std::vector<std::string> texts = {""};
  for (int length = 0; length < 5; ++length) {
    std::vector<std::string> longer;
    for (const std::string& text : texts) {
      for (const std::string_view piece : kPieces) {
        longer.push_back(text + std::string(piece));
        const std::string escaped = Escaped(longer.back());
        ASSERT_EQ(Unescaped(escaped), longer.back()) << escaped;
        ASSERT_EQ(IsPlain(longer.back()), escaped == longer.back()) << escaped;
      }
    }
    texts = std::move(longer);
  }
}

}  // namespace
