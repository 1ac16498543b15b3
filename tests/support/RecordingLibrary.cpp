// A logger library for tests: liblogger's interface in front of a RecordingLog.
//
// It records in the file that the environment variable RECORDING names, or in
// none when there is no such variable. Its first records are its own calls.
// RECORDER makes it misbehave:
//
//   leak      InitLogger opens a file that children inherit
//   move      InitLogger changes HOME
//   refuse    InitLogger returns -1
//   throw     InitLogger throws
//   fail      GetLogger throws
//   silent    GetLogger stores no logger
//   complain  GetLogger returns 1, with a logger stored

#include <fcntl.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "tests/support/RecordingLog.h"

namespace {

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

ILog& Log() {
  static auto* const log = new RecordingLog(Variable("RECORDING"));
  return *log;
}

}  // namespace

#define EXPORTED __attribute__((visibility("default")))

EXPORTED int InitLogger(const char* directory) {
  Log().Log(LOGLEVEL_MESSAGE, "InitLogger %s", directory);
  if (Variable("RECORDER") == "leak") {
    open("/dev/zero", O_RDONLY);
  }
  if (Variable("RECORDER") == "move") {
    setenv("HOME", "/nonexistent", 1);
  }
  if (Variable("RECORDER") == "throw") {
    throw std::runtime_error("asked to");
  }
  return Variable("RECORDER") == "refuse" ? -1 : 0;
}

EXPORTED int GetLogger(int version, const char* name, LOGLEVEL threshold,
                       ILog** logger) {
  Log().Log(LOGLEVEL_MESSAGE, "GetLogger %d %s %d", version, name, threshold);
  if (Variable("RECORDER") == "fail") {
    throw std::runtime_error("asked to");
  }
  if (Variable("RECORDER") != "silent") {
    *logger = &Log();
  }
  return Variable("RECORDER") == "complain" ? 1 : 0;
}
