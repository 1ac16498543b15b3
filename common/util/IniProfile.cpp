#include "common/util/IniProfile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include "common/util/Trim.h"

namespace {

// A line of up to 2,047 bytes and its terminator; fgets reads a longer one as
// several.
constexpr std::size_t kLineBytes = 2048;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// Only "A" to "Z", so that a program that has changed the C library's locale
// gets the same results.
char Lower(char character) {
  const bool is_upper = character >= 'A' && character <= 'Z';
  return is_upper ? static_cast<char>(character - 'A' + 'a') : character;
}

bool IsSameName(std::string_view left, std::string_view right) {
  return std::ranges::equal(left, right, {}, Lower, Lower);
}

// Reads the next line, up to its first NUL and trimmed, into `line`. False at
// the end of the file, and when the file cannot be read (a directory): trying
// again would never end. Reads again after a signal, from where the failed read
// ended: what that read took of a line is dropped.
bool ReadLine(std::FILE* file, std::string& line) {
  std::array<char, kLineBytes> buffer;
  while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), file) ==
         nullptr) {
    if (std::feof(file) != 0 || errno != EINTR) {
      return false;
    }
  }
  line = buffer.data();
  trim(line);
  return true;
}

// Whether `line` is the header of a section with that name.
bool IsHeaderOf(const std::string& line, const std::string& section) {
  constexpr std::size_t kShortestHeader = 3;
  if (line.size() < kShortestHeader || line.front() != '[' ||
      line.back() != ']') {
    return false;
  }
  std::string name = line.substr(1, line.size() - 2);
  return IsSameName(trim(name), section);
}

bool FindSection(std::FILE* file, const std::string& section) {
  std::string line;
  while (ReadLine(file, line)) {
    if (IsHeaderOf(line, section)) {
      return true;
    }
  }
  return false;
}

// The value of `key` in the section whose header has just been read.
std::optional<std::string> FindValue(std::FILE* file, const std::string& key) {
  std::string line;
  // Deliberate: a later section of the same name is never searched, and any
  // line that begins with '[' ends this one, even if it is no header. Otherwise
  // such files would give other values.
  while (ReadLine(file, line) && !line.starts_with('[')) {
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos || equals + 1 == line.size()) {
      continue;  // No value, so a later line for the key can still be found.
    }
    if (IsSameName(std::string_view(line).substr(0, equals), key)) {
      const std::size_t start = equals + 1;
      return line.substr(start, line.find('=', start) - start);
    }
  }
  return std::nullopt;
}

std::optional<std::string> Find(const std::string& section,
                                const std::string& key,
                                const std::string& fileName) {
  const File file(std::fopen(fileName.c_str(), "r"));
  if (!file || !FindSection(file.get(), section)) {
    return std::nullopt;
  }
  return FindValue(file.get(), key);
}

// Copies `text` with its terminator if it fits.
//
// Deliberate: a negative `size` becomes a huge one and admits every text.
// Callers that pass one vouch for their buffers; otherwise they would get no
// value at all.
bool CopyWhole(const std::string& text, char* buffer, int size) {
  const auto capacity =
      static_cast<std::uint64_t>(static_cast<std::int64_t>(size));
  if (text.size() >= capacity) {
    return false;
  }
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return true;
}

}  // namespace

// Deliberate: the section name is trimmed and the key is not. A key is all the
// text before the "=", and callers reach "LEVEL =" by asking for "LEVEL ".
bool GetPrivateProfileString(std::string section, std::string key,
                             std::string defaultValue, char* buffer, int size,
                             std::string fileName) {
  if (buffer == nullptr || size == 0) {
    return false;
  }
  trim(section);
  const std::optional<std::string> value = Find(section, key, fileName);
  if (value && CopyWhole(*value, buffer, size)) {
    return true;
  }
  CopyWhole(defaultValue, buffer, size);
  return false;
}
