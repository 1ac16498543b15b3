// Prints the result, size and buffer of GetExecutablePath, and on a second line
// the result of GetCurrentPath. Arguments: the buffer's size and, optionally, a
// directory to change to first.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "common/util/ExecutablePath.h"
#include "common/util/ProcessHelpers.h"

int main(int argc, char** argv) {
  if (argc > 2 && chdir(argv[2]) != 0) {
    return EXIT_FAILURE;
  }
  auto size = static_cast<std::uint32_t>(std::atoi(argv[1]));
  std::vector<char> buffer(std::size_t{size} + 1, '#');
  buffer.back() = '\0';
  const int result = GetExecutablePath(buffer.data(), &size);
  std::printf("%d %u %s\n%s", result, size, buffer.data(),
              GetCurrentPath().c_str());
  return EXIT_SUCCESS;
}
