// The path of the running executable. Each platform has its own source file.

#pragma once

#include <cstdint>

// Copies the path that the program was started with, made absolute, into
// `buffer` of `*size` bytes and returns 0. Symbolic links, "." and ".." are not
// resolved. If the path does not fit, returns -1, leaves `buffer` alone and
// stores the size that it needs, terminator included, in `*size`. Returns -1
// also when the path is unknown. Safe from any thread.
int GetExecutablePath(char* buffer, std::uint32_t* size);
