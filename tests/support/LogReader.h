// What the tests of the logger library read its files with.

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

// The lines of the file at `path` without their line feeds. The file has to end
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

// The files in `directory`, sorted by name.
inline std::vector<std::filesystem::path> FilesIn(
    const std::filesystem::path& directory) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// Whether `text` is like `pattern`, in which a '0' stands for any digit.
inline bool IsLike(std::string_view text, std::string_view pattern) {
  return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(),
                    [](char c, char like) {
                      return like == '0' ? c >= '0' && c <= '9' : c == like;
                    });
}

// The message of a line; empty, with a failure of the test, when the line is
// not laid out as lines are.
inline std::string MessageOf(std::string_view line) {
  constexpr std::string_view kTime = "0000-00-00T00:00:00.000000Z";
  constexpr std::array<std::string_view, 6> kLevels{
      "VERBOSE", "DEBUG", "MESSAGE", "WARNING", "ERROR", "CRITICAL"};
  std::string_view rest = line;
  const auto next_word = [&rest] {
    const std::string_view word = rest.substr(0, rest.find(' '));
    rest.remove_prefix(std::min(word.size() + 1, rest.size()));
    return word;
  };
  const bool time = IsLike(next_word(), kTime);
  const bool level =
      std::count(kLevels.begin(), kLevels.end(), next_word()) > 0;
  const std::string_view ids = next_word();
  EXPECT_TRUE(time && level && ids.find(':') != std::string_view::npos &&
              ids.find_first_not_of("0123456789:") == std::string_view::npos)
      << "not a line: " << line;
  return std::string(rest);
}

// The messages of the file at `path`.
inline std::vector<std::string> ReadMessages(
    const std::filesystem::path& path) {
  std::vector<std::string> messages;
  for (const std::string& line : ReadLines(path)) {
    messages.push_back(MessageOf(line));
  }
  return messages;
}
