#include "logger/LogDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace {

constexpr mode_t kDirectoryMode = 0700;

// What holds `path`; empty when nothing does.
std::string Parent(std::string path) {
  path.resize(path.find_last_not_of('/') + 1);
  path.resize(path.rfind('/') + 1);
  return path;
}

// Begins with the innermost, so that nothing is asked of parents that exist: a
// read-only one may be in the path of a writable one.
int MakeDirectories(const std::string& path) {
  if (mkdir(path.c_str(), kDirectoryMode) == 0 || errno == EEXIST) {
    return 0;
  }
  const std::string parent = Parent(path);
  if (errno != ENOENT || parent.empty()) {
    return errno;
  }
  const int error = MakeDirectories(parent);
  if (error != 0) {
    return error;
  }
  const bool made = mkdir(path.c_str(), kDirectoryMode) == 0;
  return made || errno == EEXIST ? 0 : errno;
}

int WriteProbe(const std::string& directory) {
  std::string path = directory + "/.probe-XXXXXX";
  const int probe = mkostemp(path.data(), O_CLOEXEC);
  if (probe < 0) {
    return errno;
  }
  const int error = write(probe, "\n", 1) == 1 ? 0 : errno;
  unlink(path.c_str());
  close(probe);
  return error;
}

}  // namespace

int PrepareLogDirectory(const std::string& path) {
  const int error = MakeDirectories(path);
  return error != 0 ? error : WriteProbe(path);
}
