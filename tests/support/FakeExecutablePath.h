// A GetExecutablePath whose result a test sets, in place of the platform's.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

// The path to return. Without one, as at first, the path is unknown.
extern std::optional<std::string> g_executable_path;

// The size of the buffer in the last call.
extern std::uint32_t g_offered_size;
