// A GetExecutablePath whose answer a test sets, in place of the platform's.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

// The path to answer. Without one the path is unknown, as at first.
extern std::optional<std::string> g_executable_path;

// The size of the buffer in the last call.
extern std::uint32_t g_offered_size;
