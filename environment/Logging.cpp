#include "environment/Logging.h"

#include <syslog.h>

ILog* logger = nullptr;

void WriteEvent(const std::string& source, unsigned long level,
                const std::string& text) {
  const std::string line = source + " : " + text;
  syslog(static_cast<int>(level), "%s", line.c_str());
}
