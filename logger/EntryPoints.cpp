// The library's two entry points. It exports nothing else.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

#include "environment/LoggerLibrary.h"
#include "logger/LogFile.h"
#include "logger/Logger.h"
#include "logger/Rotation.h"

namespace {

// The directory of the logs. Empty until InitLogger has succeeded.
std::string g_directory;

void DoNothing(int /*signal*/) {}

// Makes a `write` beyond the process's file-size limit (RLIMIT_FSIZE) fail with
// EFBIG instead of ending the process: installs a handler for SIGXFSZ, unless
// the process has already changed the signal's disposition.
//
// `execv` restores the default disposition of a signal with a handler, but not
// of an ignored one, so a handler changes nothing for the children. Blocking
// the signal around every `write` would cost two system calls a line, and would
// not help where the system sends the signal to the whole process.
void SurviveFileSizeLimit() {
  struct sigaction present {};
  if (sigaction(SIGXFSZ, nullptr, &present) == 0 &&
      (present.sa_flags & SA_SIGINFO) == 0 && present.sa_handler == SIG_DFL) {
    struct sigaction surviving {};
    surviving.sa_handler = DoNothing;
    surviving.sa_flags = SA_RESTART;
    sigaction(SIGXFSZ, &surviving, nullptr);
  }
}

constexpr mode_t kDirectoryMode = 0700;

// The parent's path. Empty when `path` is one component, or the root.
std::string Parent(std::string path) {
  path.resize(path.find_last_not_of('/') + 1);
  path.resize(path.rfind('/') + 1);
  return path;
}

// Tries the innermost directory first, and makes a parent only if it is
// missing: an existing one may be read-only. Returns 0 or an errno value.
int MakeDirectories(const std::string& path) {
  if (mkdir(path.c_str(), kDirectoryMode) == 0 || errno == EEXIST) {
    return 0;
  }
  const std::string parent = Parent(path);
  if (errno != ENOENT || parent.empty()) {
    return errno;
  }
  if (const int error = MakeDirectories(parent)) {
    return error;
  }
  const bool made = mkdir(path.c_str(), kDirectoryMode) == 0;
  return made || errno == EEXIST ? 0 : errno;
}

// Writes a file in `directory` and removes it. Returns 0 or an errno value.
int Probe(const std::string& directory) {
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

// Makes the path absolute, because the process may change its working
// directory. A disk too full for the probe is not an error: logging begins when
// there is space.
int Init(const char* directory) {
  SurviveFileSizeLimit();
  const std::string path = std::filesystem::absolute(directory).string();
  if (const int error = MakeDirectories(path)) {
    return error;
  }
  const int error = Probe(path);
  if (error != 0 && !IsDiskFull(error)) {
    return error;
  }
  g_directory = path;
  return 0;
}

int Make(const std::string& name, LOGLEVEL threshold, ILog** log) {
  auto made = std::make_unique<Logger>(g_directory, name, threshold);
  const int error = made->Open();
  if (error == 0) {
    *log = made.release();
  }
  return error;
}

// A name is one component of a path. Returns 0 or an errno value.
int CheckName(const char* name) {
  const std::string_view text = name == nullptr ? "" : name;
  if (text.empty() || text.find('/') != std::string_view::npos) {
    return EINVAL;
  }
  return text.size() > Rotation::kMaxNameBytes ? ENAMETOOLONG : 0;
}

}  // namespace

[[gnu::visibility("default")]] int InitLogger(const char* directory) {
  if (directory == nullptr || *directory == '\0') {
    return EINVAL;
  }
  try {
    return Init(directory);
  } catch (const std::system_error& error) {
    return error.code().value();
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

[[gnu::visibility("default")]] int GetLogger(int version, const char* name,
                                             LOGLEVEL threshold, ILog** log) {
  if (version != kLoggerInterfaceVersion) {
    return ENOTSUP;
  }
  if (log == nullptr) {
    return EINVAL;
  }
  if (const int error = CheckName(name)) {
    return error;
  }
  if (g_directory.empty()) {
    return ENOENT;
  }
  try {
    return Make(name, threshold, log);
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}
