// The formats of the launcher's log messages and the texts of its events. Users
// and other programs search logs for them, so the wording is fixed: "is killed"
// is logged for any end.

#pragma once

// Arguments: the items file's path.
inline constexpr char kReadDataMessage[] = "[LAUNCHER  ] Read data from %s";
inline constexpr char kOpenFailedMessage[] =
    "[LAUNCHER  ] Failed to open file %s";
inline constexpr char kFileEmptyMessage[] = "[LAUNCHER  ] Size of read %s is 0";
inline constexpr char kReadFailedMessage[] =
    "[LAUNCHER  ] Failed to read data from %s";

// No arguments.
inline constexpr char kNamelessMessage[] =
    "[LAUNCHER  ] There is an item has no name.";
inline constexpr char kParseFailedMessage[] =
    "[LAUNCHER  ] Error while parsing saved json string.";

// Arguments: the item's name. The first is logged at LOGLEVEL_DEBUG, every
// other message of the launcher at LOGLEVEL_ERROR.
inline constexpr char kStartMessage[] = "[LAUNCHER  ] Start to fork %s";
inline constexpr char kForkFailedMessage[] = "[LAUNCHER  ] Failed to fork %s";
inline constexpr char kNoProgramMessage[] =
    "[LAUNCHER  ] program path of %s is empty";

// Arguments: the item's name, the child's process id, the result of waitpid,
// and the wait status that it stored.
inline constexpr char kEndMessage[] =
    "[LAUNCHER  ] %s %d is killed. ret = %d, status = %d";

// The event of a launcher that got fewer than two arguments.
inline constexpr char kEventSource[] = "Tamrel Launcher";
inline constexpr char kWrongParametersEvent[] = "wrong parameters.";
