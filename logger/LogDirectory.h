// The directory that holds the logs.

#pragma once

#include <string>

// Makes `path` and its missing parents, with mode 0700, and checks that a file
// can be written there. Leaves nothing else behind. Returns 0, else the errno.
int PrepareLogDirectory(const std::string& path);
