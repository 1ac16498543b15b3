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

// Deliberate: at start-up this runs before there is a logger, so its message is
// dropped. The logger cannot be made before its level is known.
LOGLEVEL GetLogLevel() {
  const std::string name = GetSDKName();
  const std::string file = GetAppDataPath() + "/" + name + "/log.ini";
  std::array<char, kLevelBytes> level{};
  if (!GetPrivateProfileString("LOG", "LEVEL", "ERROR", level.data(),
                               static_cast<int>(level.size()), file)) {
    __LOG__A(logger, LOGLEVEL_ERROR, kNoLevelMessage);
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
    WriteEvent(kOwnerEventSource + name, kEventPriority, kNoLoggerEvent);
    return;
  }
  ILog* log = nullptr;
  // Deliberate: ignores the result. A library that stores a logger and reports
  // an error still logs; one that stores none leaves `logger` null.
  GetLogger(kLoggerInterfaceVersion, "launcher", level, &log);
  logger = log;
}
