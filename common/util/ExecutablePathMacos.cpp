#include <mach-o/dyld.h>

#include "common/util/ExecutablePath.h"

int GetExecutablePath(char* buffer, std::uint32_t* size) {
  return _NSGetExecutablePath(buffer, size);
}
