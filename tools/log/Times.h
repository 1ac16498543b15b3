// Times and spans of time, read and written.

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/log/LogLine.h"

// The present time.
LogMicros Now();

// What "--since" says: a span before `now` ("90s", "15m", "2h", "3d"), or a
// UTC time ("2026-11-21", "2026-11-21T06:20", "2026-11-21T06:20:31", each also
// with a "Z" at its end). Nothing for anything else.
std::optional<LogMicros> ParseSince(std::string_view text, LogMicros now);

// "2026-11-21T06:20:31Z", UTC.
std::string TimeText(LogMicros time);

// A span in at most five columns: "49ms", "3.2s", "45s", "12m", "3h", "5d".
// Spans below 0 count as 0.
std::string SpanText(LogMicros span);

// A count in at most five columns: "99999", "123k", "1.2M", "45G".
std::string CountText(std::uint64_t count);
