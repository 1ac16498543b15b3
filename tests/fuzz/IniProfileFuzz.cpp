// Checks the INI profile reader against its oracle. The first two lines of the
// input are the section and the key; the rest is the file.

#include <optional>
#include <vector>

#include "common/util/IniProfile.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/IniProfileOracle.h"
#include "tests/support/TempDir.h"

namespace {

constexpr char kUntouched = '#';

std::optional<std::string> Read(const std::string& section,
                                const std::string& key, std::size_t room,
                                int size, const std::string& file) {
  // Exactly enough room, so that AddressSanitizer finds one byte too many.
  std::vector<char> buffer(room, kUntouched);
  const bool found =
      GetPrivateProfileString(section, key, "", buffer.data(), size, file);
  if (!found) {
    return std::nullopt;
  }
  Require(buffer.back() == '\0');
  return buffer.data();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  static const TempDir folder;
  std::string_view content = Text(data, size);
  const std::string section = RemoveFirstLine(content);
  const std::string key = RemoveFirstLine(content);
  // Removed first: some file systems flush a file that is truncated and written
  // again.
  std::filesystem::remove(folder.Path() / "fuzz.ini");
  const std::string file = folder.Write("fuzz.ini", content);

  const std::optional<std::string> expected =
      ini_oracle::Find(content, section, key);
  const std::size_t room = expected ? expected->size() + 1 : 1;
  const int exact = static_cast<int>(room);
  Require(Read(section, key, room, exact, file) == expected);
  Require(Read(section, key, room, -1, file) == expected);
  Require(!Read(section, key, room, exact - 1, file));
  return 0;
}
