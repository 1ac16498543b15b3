#include "environment/LogConfig.h"

#include <array>
#include <string_view>

#include "common/util/IniProfile.h"
#include "environment/AppPaths.h"
#include "environment/Logging.h"

namespace {

struct LevelName {
  std::string_view text;
  LOGLEVEL level;
};

constexpr std::array<LevelName, 6> kLevelNames{{
    {"DEBUG", LOGLEVEL_DEBUG},
    {"MESSAGE", LOGLEVEL_MESSAGE},
    {"WARNING", LOGLEVEL_WARNING},
    {"ERROR", LOGLEVEL_ERROR},
    {"CRITICAL", LOGLEVEL_CRITICAL},
    {"VERBOSE", LOGLEVEL_VERBOSE},
}};

constexpr std::size_t kLevelBytes = 1024;

}  // namespace

// At start-up this runs before there is a logger, so its message is dropped
// there. Keep it so: the level has to be known to make the logger.
LOGLEVEL GetLogLevel() {
  const std::string name = GetSDKName();
  const std::string file = GetAppDataPath() + "/" + name + "/log.ini";
  std::array<char, kLevelBytes> level{};
  if (!GetPrivateProfileString("LOG", "LEVEL", "ERROR", level.data(),
                               static_cast<int>(level.size()), file)) {
    __LOG__A(logger, LOGLEVEL_ERROR, "[SERVICE   ] Failed to get log level");
  }
  return StringToLogLevel(level.data());
}

LOGLEVEL StringToLogLevel(std::string text) {
  for (const LevelName& name : kLevelNames) {
    if (text == name.text) {
      return name.level;
    }
  }
  return LOGLEVEL_ERROR;
}

void InitLog(std::string name) {
  const LOGLEVEL level = GetLogLevel();
  const std::string directory = GetLogPath();
  if (InitLogger(directory.c_str()) != 0) {
    WriteEvent("Tamrel Launcher for " + name, kEventPriority,
               "Failed to initialize logger");
    return;
  }
  ILog* log = nullptr;
  // A logger that the library refuses to make stays null: nothing is logged.
  GetLogger(kLoggerInterfaceVersion, "launcher", level, &log);
  logger = log;
}
