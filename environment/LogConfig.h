// The log level, and the start of logging.
//
// All of it runs once, on the main thread, before any supervision thread
// exists. Nothing throws but std::bad_alloc.

#pragma once

#include <string>

#include "environment/LoggerLibrary.h"

// The level that "LEVEL" in section "LOG" of the file
// `GetAppDataPath()` + "/" + `GetSDKName()` + "/log.ini" names. When there is
// no such entry, logs "[SERVICE   ] Failed to get log level" and returns
// LOGLEVEL_ERROR.
LOGLEVEL GetLogLevel();

// The level of exactly this name: "DEBUG", "MESSAGE", "WARNING", "ERROR",
// "CRITICAL" or "VERBOSE". Any other text gives LOGLEVEL_ERROR.
//
//   StringToLogLevel("VERBOSE")  gives  LOGLEVEL_VERBOSE (17)
//   StringToLogLevel("debug")    gives  LOGLEVEL_ERROR
//   StringToLogLevel("")         gives  LOGLEVEL_ERROR
LOGLEVEL StringToLogLevel(std::string text);

// Prepares `GetLogPath()` for the logger library and stores the logger
// "launcher" with the configured level in `logger`. When the library cannot be
// initialised, writes the event "Failed to initialize logger" for "Tamrel
// Launcher for " + `name`, the owner's name, and leaves `logger` null: nothing
// is logged then.
void InitLog(std::string name);
