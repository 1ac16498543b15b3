// The kernel passes a program the path that it was started with in the
// auxiliary vector (AT_EXECFN). /proc/self/exe would not do, because it has all
// symbolic links resolved, and the launcher's bundle may be made of links. A
// relative path is relative to the working directory at process start, so it is
// made absolute before main runs.

#include <sys/auxv.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "common/util/ExecutablePath.h"

namespace {

// A fixed array, so that no allocation can fail before main runs.
struct StartPath {
  char text[2 * PATH_MAX] = {};

  StartPath() {
    if (!ReadAuxiliaryVector()) {
      ReadProc();
    }
  }

 private:
  bool ReadAuxiliaryVector() {
    const auto* const path =
        reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    if (path == nullptr) {
      return false;
    }
    if (path[0] == '/') {
      std::snprintf(text, sizeof text, "%s", path);
      return true;
    }
    char directory[PATH_MAX];
    if (getcwd(directory, sizeof directory) == nullptr) {
      return false;
    }
    const char* const separator = std::strcmp(directory, "/") == 0 ? "" : "/";
    std::snprintf(text, sizeof text, "%s%s%s", directory, separator, path);
    return true;
  }

  void ReadProc() {
    [[maybe_unused]] const ssize_t length =
        readlink("/proc/self/exe", text, sizeof text - 1);
  }
};

const StartPath g_start_path;

}  // namespace

int GetExecutablePath(char* buffer, std::uint32_t* size) {
  const std::size_t needed = std::strlen(g_start_path.text) + 1;
  if (needed == 1) {
    return -1;
  }
  if (needed > *size) {
    *size = static_cast<std::uint32_t>(needed);
    return -1;
  }
  std::memcpy(buffer, g_start_path.text, needed);
  return 0;
}
