#include "tests/support/IniProfileOracle.h"

#include <cstring>
#include <deque>
#include <sstream>
#include <vector>

namespace ini_oracle {
namespace {

bool IsBlank(char character) {
  return character != '\0' && std::strchr(" \t\n\v\f\r", character) != nullptr;
}

std::string Trimmed(std::string_view text) {
  std::deque<char> characters(text.begin(), text.end());
  while (!characters.empty() && IsBlank(characters.back())) {
    characters.pop_back();
  }
  while (!characters.empty() && IsBlank(characters.front())) {
    characters.pop_front();
  }
  return {characters.begin(), characters.end()};
}

std::string Lowered(std::string_view text) {
  const std::string upper = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  const std::string lower = "abcdefghijklmnopqrstuvwxyz";
  std::string result;
  for (const char character : text) {
    const std::size_t letter = upper.find(character);
    result += letter == std::string::npos ? character : lower[letter];
  }
  return result;
}

// A line, with its line end, has at most 2,047 bytes and ends at its first NUL.
std::vector<std::string> Lines(std::string_view content) {
  std::vector<std::string> lines;
  std::string line;
  for (std::size_t i = 0; i < content.size(); ++i) {
    line += content[i];
    if (content[i] == '\n' || line.size() == 2047 || i + 1 == content.size()) {
      lines.push_back(Trimmed(line.substr(0, line.find('\0'))));
      line.clear();
    }
  }
  return lines;
}

// A stream gives no empty piece after a final "=".
std::vector<std::string> Pieces(const std::string& line) {
  std::vector<std::string> pieces;
  std::istringstream stream(line);
  for (std::string piece; std::getline(stream, piece, '=');) {
    pieces.push_back(piece);
  }
  return pieces;
}

bool IsHeaderOf(const std::string& line, const std::string& section) {
  const std::size_t length = line.size();
  return length > 2 && line[0] == '[' && line[length - 1] == ']' &&
         Lowered(Trimmed(line.substr(1, length - 2))) == section;
}

}  // namespace

std::optional<std::string> Find(std::string_view content,
                                std::string_view section,
                                std::string_view key) {
  const std::string wanted_section = Lowered(Trimmed(section));
  const std::string wanted_key = Lowered(key);
  bool inside = false;
  for (const std::string& line : Lines(content)) {
    if (!inside) {
      inside = IsHeaderOf(line, wanted_section);
      continue;
    }
    if (line.rfind('[', 0) == 0) {
      return std::nullopt;
    }
    const std::vector<std::string> pieces = Pieces(line);
    if (pieces.size() > 1 && Lowered(pieces[0]) == wanted_key) {
      return pieces[1];
    }
  }
  return std::nullopt;
}

bool Fits(std::size_t length, int size) {
  if (size < 0) {
    return true;
  }
  return length < static_cast<std::size_t>(size);
}

}  // namespace ini_oracle
