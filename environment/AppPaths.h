// Paths: where the running executable is installed, and where its user's data
// and logs are.
//
// An executable is in one of two bundle layouts. In the ordinary layout the
// framework directory, "Frameworks", is next to the executable's directory. In
// the Finder Sync layout, recognised by the executable's name, it is in the
// directory four levels above the executable's, and `GetAppDataPath` starts
// four levels above HOME.
//
// Paths are bytes as the operating system gives them. They are joined without
// normalisation (an empty SDK name leaves "//"), and an unset HOME counts as
// empty. Nothing is cached or logged; only a failed allocation throws. Safe
// from any thread while no thread changes the environment.

#pragma once

#include <string>

// Returns the framework directory, which holds "qvxapi.ini" and the logger
// library, as an absolute path without symbolic links. If the directory does
// not exist, or that path takes 1,024 bytes or more, returns the unresolved
// path with its "..". Returns an empty path if the executable's path is unknown
// or takes 1,024 bytes or more.
//
//   /Applications/A.app/Contents/MacOS/launcher
//     gives  /Applications/A.app/Contents/Frameworks
std::string GetAppPath();

// Whether the executable's path ends with "QuillmapFinderSync", byte for byte.
// False if the path is unknown or takes 1,024 bytes or more.
bool IsFinderSync();

// The value of "NAME" in section "SDK" of `GetAppPath()` + "/qvxapi.ini"; empty
// if there is none or if it takes 1,024 bytes or more.
std::string GetSDKName();

// The application-support directory.
//
//   $HOME/Library/Application Support              in the ordinary layout
//   $HOME/../../../../Library/Application Support  in the Finder Sync layout
std::string GetAppDataPath();

// The log directory, $HOME/Library/Logs/<SDK name>/qvxlog, in both layouts.
std::string GetLogPath();
