// The log level, and the start of logging.
//
// These functions run once, on the main thread, before any supervision thread
// exists. They throw only std::bad_alloc.

#pragma once

#include <string>

#include "environment/LoggerLibrary.h"

// The message that `GetLogLevel` logs at LOGLEVEL_ERROR.
inline constexpr char kNoLevelMessage[] =
    "[SERVICE   ] Failed to get log level";

// The event that `InitLog` writes. Its source is followed by the owner's name.
inline constexpr char kOwnerEventSource[] = "Tamrel Launcher for ";
inline constexpr char kNoLoggerEvent[] = "Failed to initialize logger";

// Returns the level that is the value of "LEVEL" in section "LOG" of
// `GetAppDataPath()` + "/" + `GetSDKName()` + "/log.ini". If there is no such
// entry, logs `kNoLevelMessage` and returns LOGLEVEL_ERROR.
LOGLEVEL GetLogLevel();

// The level with exactly this name: "DEBUG", "MESSAGE", "WARNING", "ERROR",
// "CRITICAL" or "VERBOSE". Any other text gives LOGLEVEL_ERROR.
//
//   StringToLogLevel("VERBOSE")  gives  LOGLEVEL_VERBOSE (17)
//   StringToLogLevel("debug")    gives  LOGLEVEL_ERROR
//   StringToLogLevel("")         gives  LOGLEVEL_ERROR
LOGLEVEL StringToLogLevel(std::string text);

// Initialises the logger library with `GetLogPath()` and stores its logger
// "launcher", at the configured level, in `logger`. If the library cannot be
// initialised, writes the event `kNoLoggerEvent` from `kOwnerEventSource` +
// `name`, the owner's name, and leaves `logger` null: nothing is logged.
void InitLog(std::string name);
