// Counts function-local statics, whose initialisation takes a lock of the C++
// runtime.

#pragma once

// The number of statics that the program and its libraries have begun to
// initialise. Only with libstdc++, whose function for that can be replaced: it
// is in a shared library, and on Linux a program's functions take precedence.
int LocalStaticsMade();
