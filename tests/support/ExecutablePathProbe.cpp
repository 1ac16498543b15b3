// Prints what GetExecutablePath answers, the result, the size and the buffer,
// and on a second line what GetCurrentPath does.
// Arguments: the buffer's size and, where given, a working directory to change
// to before it asks.

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
