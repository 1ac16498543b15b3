// The library's two entry points: all that it exports.

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

// Empty until InitLogger has succeeded.
std::string g_directory;

void DoNothing(int /*signal*/) {}

// Has a `write` beyond the process's file-size limit (RLIMIT_FSIZE) fail with
// EFBIG instead of ending the process: SIGXFSZ gets a handler, unless its
// disposition has been changed already.
//
// Unlike an ignored signal, one with a handler has its default disposition
// again in a program that is executed, so nothing changes for the children.
// Blocking the signal around every `write` would cost two system calls a line
// and would not help where it is sent to the process as a whole.
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

// Empty when `path` is one component, or the root.
std::string Parent(std::string path) {
  path.resize(path.find_last_not_of('/') + 1);
  path.resize(path.rfind('/') + 1);
  return path;
}

// Begins with the innermost, so that nothing is asked of parents that exist:
// one of them may be read-only.
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

// Whether a file can be written in `directory`: 0 or an errno value. Leaves
// nothing behind.
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

// The path is made absolute, since the process may change its working
// directory. A full disk is no reason to refuse: logging begins when there is
// space.
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
