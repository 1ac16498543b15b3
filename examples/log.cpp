// The smallest program that logs through the logger library:
//
//   log_example DIRECTORY TEXT
//
// appends TEXT to DIRECTORY/example.log.

#include <cstdio>
#include <cstring>

#include "environment/LoggerLibrary.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: log_example DIRECTORY TEXT\n");
    return 2;
  }
  ILog* log = nullptr;
  int error = InitLogger(argv[1]);
  if (error == 0) {
    error =
        GetLogger(kLoggerInterfaceVersion, "example", LOGLEVEL_MESSAGE, &log);
  }
  if (error != 0) {
    std::fprintf(stderr, "log_example: %s\n", std::strerror(error));
    return 1;
  }
  log->Log(LOGLEVEL_MESSAGE, "[EXAMPLE   ] %s", argv[2]);
  log->LogText(LOGLEVEL_DEBUG, "[EXAMPLE   ] below the threshold");
  return 0;
}
