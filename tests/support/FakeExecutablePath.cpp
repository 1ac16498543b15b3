#include "tests/support/FakeExecutablePath.h"

#include "common/util/ExecutablePath.h"

std::optional<std::string> g_executable_path;
std::uint32_t g_offered_size = 0;

int GetExecutablePath(char* buffer, std::uint32_t* size) {
  g_offered_size = *size;
  if (!g_executable_path || g_executable_path->size() + 1 > *size) {
    return -1;
  }
  buffer[g_executable_path->copy(buffer, *size)] = '\0';
  return 0;
}
