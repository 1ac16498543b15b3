// The path of the running executable: the seam to the platform, one source file
// for each.

#pragma once

#include <cstdint>

// Copies the path that the program was started with, NUL-terminated, into
// `buffer`, which holds `*size` bytes, and returns 0. The path is absolute;
// symbolic links, "." and ".." in it are left as they are. When it does not
// fit, returns -1, leaves `buffer` alone and stores the size that it takes, the
// terminator included, in `*size`. Also -1 when there is no such path.
// Safe from any thread.
int GetExecutablePath(char* buffer, std::uint32_t* size);
