// Where the running executable stands on disk, and where its user's data and
// logs are.
//
// An executable sits in one of two bundle layouts. In the ordinary one the
// framework directory is the Frameworks beside the executable's directory. In
// the Finder Sync one, told by the executable's name, it lies four levels up,
// and so does the home directory for `GetAppDataPath`.
//
// Paths are narrow strings as the operating system gives them, put together
// without normalising: an empty SDK name leaves "//" behind, and an unset HOME
// counts as empty. Nothing is cached, nothing is logged; only a failed
// allocation throws. Safe from any thread while nobody changes the environment.

#pragma once

#include <string>

// The framework directory, absolute and with symbolic links resolved; it holds
// "qvxapi.ini" and the logger library. When it does not exist, or when its path
// takes 1,024 bytes or more, the unresolved path, ".." included. Empty when the
// executable's path takes 1,024 bytes or more.
//
//   /Applications/A.app/Contents/MacOS/launcher
//     gives  /Applications/A.app/Contents/Frameworks
std::string GetAppPath();

// Whether the executable's path ends with "QuillmapFinderSync", byte for byte;
// what stands before that in the name does not matter. False when the path
// takes 1,024 bytes or more.
bool IsFinderSync();

// The value of "NAME" in section "SDK" of `GetAppPath()` + "/qvxapi.ini", read
// as by `GetPrivateProfileString` into 1,024 bytes; empty when there is none.
std::string GetSDKName();

// The application-support directory.
//
//   $HOME/Library/Application Support              in the ordinary layout
//   $HOME/../../../../Library/Application Support  in the Finder Sync layout
std::string GetAppDataPath();

// The log directory, $HOME/Library/Logs/<SDK name>/qvxlog, in both layouts.
std::string GetLogPath();
