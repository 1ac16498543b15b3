// Times, spans of time and numbers, read and written.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Microseconds, of a span or since 1970, UTC.
using Micros = std::int64_t;

inline constexpr Micros kMicrosPerSecond = 1'000'000;

Micros Now();

// Parses all of `text` as a decimal number; nullopt for any other text.
std::optional<std::int64_t> ToNumber(std::string_view text);

// Parses the time at the start of `text`, in a log's form; nullopt if there is
// none.
//
//   2026-11-21T06:20:31.123456Z ERROR ...  gives  1795242031123456
//   2026-11-21T25:00:00.000000Z            gives  nullopt
std::optional<Micros> ParseLogTime(std::string_view text);

// The forms that `ParseSince` reads, for messages.
inline constexpr char kSinceForms[] =
    "a span before now, such as 90s, 15m, 2h or 3d, or a time in UTC:\n"
    "2026-11-21, 2026-11-21T06:20, 2026-11-21T06:20:31 or\n"
    "2026-11-21T06:20:31.123456Z";

// Parses a span before `now`, or a UTC time, which may end with "Z"; nullopt
// for any other text.
std::optional<Micros> ParseSince(std::string_view text, Micros now);

// "2026-11-21T06:20:31Z", UTC.
std::string TimeText(Micros time);

// A span in at most five columns: "49ms", "3.2s", "45s", "12m", "3h", "5d".
// Spans below 0 count as 0.
std::string SpanText(Micros span);

// A count in at most five columns: "99999", "123k", "1.2M", "45G".
std::string CountText(std::uint64_t count);
