#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "Expect.h"
#include "common/util/ExecutablePath.h"
#include "common/util/IniProfile.h"
#include "common/util/ProcessHelpers.h"
#include "common/util/StringHelpers.h"
#include "common/util/Trim.h"
#include "common/util/Wildcard.h"

int main(int, char** argv) {
  Expect(split("a/b", std::regex("/")) == std::vector<std::string>{"a", "b"},
         "split");
  Expect(string_format("%d-%s", 7, "x") == "7-x", "string_format");
  std::string text = " aaaa ";
  replace_all(trim(text), "aa", "b");
  Expect(text == "baa", "trim and replace_all");
  Expect(ends_with("abc", "bc"), "ends_with");
  Expect(ws2s(s2ws("\xC3\xA9")) == "\xC3\xA9", "s2ws and ws2s");

  std::array<char, 8> buffer{};
  Expect(!GetPrivateProfileString("LOG", "LEVEL", "ERROR", buffer.data(), 8,
                                  "/nowhere.ini"),
         "GetPrivateProfileString");
  Expect(buffer.data() == std::string("ERROR"), "the default");

  Expect(IsNameInExpression(L"<.txt", L"a.b.txt", false), "wide matching");
  Expect(IsNameInExpressionA("a*", "ABC", true), "narrow matching");

  Expect(pexec("echo a") == "a\n", "pexec");
  Expect(IsRunningPID(0), "IsRunningPID");
  Expect(std::string(argv[0]).ends_with("util_consumer") &&
             !GetCurrentPath().empty(),
         "GetCurrentPath");
  std::array<char, 4096> path{};
  std::uint32_t size = path.size();
  Expect(GetExecutablePath(path.data(), &size) == 0, "GetExecutablePath");
}
