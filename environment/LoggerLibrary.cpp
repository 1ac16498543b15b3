// The launcher's own InitLogger and GetLogger load the logger library at run
// time and forward to it. So the launcher can start, report wrong arguments and
// supervise without the library. It is never unloaded, because its logger lives
// until the process ends.

#include "environment/LoggerLibrary.h"

#include <dlfcn.h>

#include <cerrno>

#include "environment/AppPaths.h"

namespace {

struct Library {
  decltype(&InitLogger) init_logger;
  decltype(&GetLogger) get_logger;
};

// Null until the library is loaded and has both entry points.
Library g_library;

// Loads the library, once. False if it is missing, cannot be loaded or lacks an
// entry point.
bool Load() {
  if (g_library.init_logger != nullptr) {
    return true;
  }
  const std::string file = GetAppPath() + "/" LAUNCHER_LOGGER_FILE;
  void* const handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    return false;
  }
  const Library library{
      reinterpret_cast<decltype(&InitLogger)>(dlsym(handle, "InitLogger")),
      reinterpret_cast<decltype(&GetLogger)>(dlsym(handle, "GetLogger"))};
  if (library.init_logger == nullptr || library.get_logger == nullptr) {
    return false;
  }
  g_library = library;
  return true;
}

}  // namespace

// The library is foreign code with a C interface. An exception from it counts
// as a failure: the launcher must not end because it cannot log.

int InitLogger(const char* directory) {
  if (!Load()) {
    return ENOENT;
  }
  try {
    return g_library.init_logger(directory);
  } catch (...) {
    return ECANCELED;
  }
}

int GetLogger(int version, const char* name, LOGLEVEL threshold, ILog** log) {
  if (g_library.get_logger == nullptr) {
    return ENOENT;
  }
  try {
    return g_library.get_logger(version, name, threshold, log);
  } catch (...) {
    return ECANCELED;
  }
}
