// Process helpers: a shell command's output, whether a process is there, and
// where the running executable lies. They share no state.

#pragma once

#include <string>

// Runs `command` in the system shell, with the caller's environment and working
// directory, and returns what it wrote to its standard output, once it has
// ended. Its exit status is dropped. The output is read in pieces that end
// behind a line feed or after 127 bytes; of each, what follows a NUL is lost.
// Throws std::runtime_error("popen() failed!") when the shell cannot be
// started, and what the string library throws, once the command has ended. Safe
// from any thread.
//
//   pexec("echo a; echo b")      gives  "a\nb\n"
//   pexec("true")                gives  ""
//   pexec("printf 'a\\0b\\nc'")  gives  "ac"
std::string pexec(std::string command);

// Whether a signal could be sent to the process whose identifier is in the low
// 32 bits of `pid`. False also for a live process that the caller may not
// signal; true for an ended one that its parent has not waited for. What `kill`
// takes 0 and negative identifiers for holds here. Safe from any thread.
bool IsRunningPID(long long pid);

// The folder of the running executable, without a slash at the end, symbolic
// links, "." and ".." left as they are. Empty for an executable in the root
// folder, and when its path is unknown or has more than 1,024 bytes. Safe from
// any thread.
//
//   /usr/local/bin/tool  gives  "/usr/local/bin"
//   /tool                gives  ""
std::string GetCurrentPath();
