#include "logger/LogLevels.h"

#include <array>
#include <cstddef>

namespace {

constexpr std::array<std::string_view, 6> kTextsBySeverity{
    "VERBOSE", "DEBUG", "MESSAGE", "WARNING", "ERROR", "CRITICAL"};

}  // namespace

int Severity(LOGLEVEL level) {
  switch (level) {
    case LOGLEVEL_VERBOSE:
      return 0;
    case LOGLEVEL_DEBUG:
      return 1;
    case LOGLEVEL_MESSAGE:
      return 2;
    case LOGLEVEL_WARNING:
      return 3;
    case LOGLEVEL_ERROR:
      break;
    case LOGLEVEL_CRITICAL:
      return 5;
  }
  return 4;
}

std::string_view LevelText(LOGLEVEL level) {
  return kTextsBySeverity[static_cast<std::size_t>(Severity(level))];
}
