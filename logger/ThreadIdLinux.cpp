#include <unistd.h>

#include "logger/ThreadId.h"

std::uint64_t ThreadId() { return static_cast<std::uint64_t>(gettid()); }
