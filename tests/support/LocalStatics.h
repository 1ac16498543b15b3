// Counts function-local statics, whose initialisation takes a lock of the C++
// runtime.

#pragma once

// The number of statics that the program and its libraries have begun to
// initialise. Works only on Linux, where a program's functions take precedence
// over a library's.
int LocalStaticsMade();
