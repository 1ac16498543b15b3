// The library's two entry points: all that it exports.

#include <cerrno>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

#include "environment/LoggerLibrary.h"
#include "logger/FileSizeLimit.h"
#include "logger/LogDirectory.h"
#include "logger/Logger.h"
#include "logger/Rotation.h"

namespace {

// Empty until InitLogger has succeeded.
std::string g_directory;

// Absolute, since the process may change its working directory.
int Init(const char* directory) {
  SurviveFileSizeLimit();
  const std::string path = std::filesystem::absolute(directory).string();
  const int error = PrepareLogDirectory(path);
  if (error == 0) {
    g_directory = path;
  }
  return error;
}

int Make(const std::string& name, LOGLEVEL threshold, ILog** log) {
  auto made = std::make_unique<Logger>(g_directory, name, threshold);
  const int error = made->Open();
  if (error == 0) {
    *log = made.release();
  }
  return error;
}

// 0, else the errno. A name is one component of a path.
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
