// Process helpers. They share no state and are safe from any thread.

#pragma once

#include <string>

// Runs `command` in the system shell, waits for it to end and returns its
// standard output. The output is read in pieces that end after a line feed or
// 127 bytes; a NUL ends a piece's text. Throws std::runtime_error("popen()
// failed!") when the shell cannot be started. Also throws the exceptions of the
// string library, but only after the command has ended.
//
//   pexec("echo a; echo b")      gives  "a\nb\n"
//   pexec("printf 'a\\0b\\nc'")  gives  "ac"
std::string pexec(std::string command);

// Whether the caller may signal the process whose id is in the low 32 bits of
// `pid`. 0 and negative ids have the same meaning as for `kill`. True also for
// an ended process that its parent has not waited for.
bool IsRunningPID(long long pid);

// The running executable's folder, without a final slash; symbolic links, "."
// and ".." are not resolved. Empty for the root folder, and when the
// executable's path is unknown or longer than 1,024 bytes.
std::string GetCurrentPath();
