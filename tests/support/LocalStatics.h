// Function-local statics, whose making a lock of the C++ runtime guards.

#pragma once

// How many the program and its libraries have begun to make. Only where a
// program's functions take precedence over a library's: on Linux.
int LocalStaticsMade();
