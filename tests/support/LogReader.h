// Reads the files of the logger library.

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "logger/Format.h"

using Messages = std::vector<std::string>;

// The lines of the file at `path` without their line feeds. The file must end
// with one.
inline std::vector<std::string> ReadLines(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    EXPECT_FALSE(file.eof()) << "no line feed after " << line;
    lines.push_back(line);
  }
  return lines;
}

// Everything in `directory`, sorted by name.
inline std::vector<std::filesystem::path> FilesIn(
    const std::filesystem::path& directory) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// Whether `text` has the layout of a line's time.
inline bool IsTime(std::string_view text) {
  return std::equal(text.begin(), text.end(), kTimeShape.begin(),
                    kTimeShape.end(), [](char c, char shape) {
                      return shape == kTimeDigit ? c >= '0' && c <= '9'
                                                 : c == shape;
                    });
}

inline bool IsLevel(std::string_view text) {
  return std::any_of(
      kLevelsBySeverity.begin(), kLevelsBySeverity.end(),
      [text](const LevelFormat& level) { return level.text == text; });
}

// A line's words before the message, and the message.
struct LogWords {
  std::string_view time;
  std::string_view level;
  std::string_view ids;
  std::string_view message;
};

inline LogWords WordsOf(std::string_view line) {
  const auto next_word = [&line] {
    const std::string_view word = line.substr(0, line.find(' '));
    line.remove_prefix(std::min(word.size() + 1, line.size()));
    return word;
  };
  LogWords words;
  words.time = next_word();
  words.level = next_word();
  words.ids = next_word();
  words.message = line;
  return words;
}

inline bool IsLine(std::string_view line) {
  const LogWords words = WordsOf(line);
  return IsTime(words.time) && IsLevel(words.level) &&
         words.ids.find(':') != std::string_view::npos &&
         words.ids.find_first_not_of("0123456789:") == std::string_view::npos;
}

// The message of a line; fails the test when the line is not laid out as lines
// are.
inline std::string MessageOf(std::string_view line) {
  EXPECT_TRUE(IsLine(line)) << "not a line: " << line;
  return std::string(WordsOf(line).message);
}

// The messages of the file at `path`.
inline Messages ReadMessages(const std::filesystem::path& path) {
  Messages messages;
  for (const std::string& line : ReadLines(path)) {
    messages.push_back(MessageOf(line));
  }
  return messages;
}

// The same, but a line without a line's layout stays as it is.
inline Messages ReadMessagesAndFragments(const std::filesystem::path& path) {
  Messages messages;
  for (const std::string& line : ReadLines(path)) {
    messages.push_back(IsLine(line) ? MessageOf(line) : line);
  }
  return messages;
}

// The message that reports `lines` lost lines.
inline std::string LostReport(unsigned long long lines, int error) {
  constexpr std::size_t kMaxNumbersBytes = 40;
  std::array<char, sizeof(kLostLinesMessage) + kMaxNumbersBytes> text;
  std::snprintf(text.data(), text.size(), kLostLinesMessage, lines, error);
  return text.data();
}
