#include <gtest/gtest.h>

#include <string_view>

#include "common/util/Utf8.h"

namespace {

void ExpectCharacter(std::string_view text, char32_t code, std::size_t bytes) {
  const Utf8Character character = DecodeUtf8(text);
  EXPECT_TRUE(character.is_valid) << testing::PrintToString(text);
  EXPECT_EQ(character.code, code) << testing::PrintToString(text);
  EXPECT_EQ(character.bytes, bytes) << testing::PrintToString(text);
}

void ExpectInvalid(std::string_view text) {
  const Utf8Character character = DecodeUtf8(text);
  EXPECT_FALSE(character.is_valid) << testing::PrintToString(text);
  EXPECT_EQ(character.code, static_cast<unsigned char>(text[0]));
  EXPECT_EQ(character.bytes, 1U);
}

TEST(DecodeUtf8, DecodesTheFirstCharacter) {
  ExpectCharacter("a", U'a', 1);
  ExpectCharacter(std::string_view("\0b", 2), U'\0', 1);
  ExpectCharacter("\x7F\x80", U'\x7F', 1);
  ExpectCharacter("\xC3\xA9!", U'\u00E9', 2);
  ExpectCharacter("\xE2\x82\xAC\xC3", U'\u20AC', 3);
  ExpectCharacter("\xF0\x9F\x98\x80", U'\U0001F600', 4);
}

TEST(DecodeUtf8, ReturnsTheFirstByteOfAnInvalidText) {
  ExpectInvalid("\xC3(");
  ExpectInvalid("\xC3");
  ExpectInvalid("\x80");
  ExpectInvalid("\xC1\xBF");
  ExpectInvalid("\xE2\x82");
  ExpectInvalid("\xE2(\xAC");
  ExpectInvalid("\xE0\x9F\xBF");
  ExpectInvalid("\xED\xA0\x80");
  ExpectInvalid("\xF4\x90\x80\x80");
  ExpectInvalid("\xFF");
}

TEST(DecodeUtf8, ReadsOnlyTheText) {
  ExpectInvalid(std::string_view("\xF0\x9F\x98\x80").substr(0, 3));
}

}  // namespace
