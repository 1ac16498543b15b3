#include "tools/text/Times.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <ctime>

#include "logger/Format.h"

namespace {

constexpr Micros kMinute = 60 * kMicrosPerSecond;
constexpr Micros kHour = 60 * kMinute;
constexpr Micros kDay = 24 * kHour;

std::optional<Micros> ParseSpan(std::string_view text) {
  constexpr std::string_view kUnits = "smhd";
  constexpr std::array<Micros, kUnits.size()> kSpans{kMicrosPerSecond, kMinute,
                                                     kHour, kDay};
  constexpr std::int64_t kMaxNumber = 1'000'000;
  const std::size_t unit =
      text.empty() ? kUnits.npos : kUnits.find(text.back());
  if (unit == kUnits.npos) {
    return std::nullopt;
  }
  const auto number = ToNumber(text.substr(0, text.size() - 1));
  return number && *number >= 0 && *number <= kMaxNumber
             ? std::optional(*number * kSpans[unit])
             : std::nullopt;
}

// Year, month, day, hour, minute, second and microseconds, in the order of
// `kTimeShape`, and a last one for the end of the text.
using TimeFields = std::array<int, 8>;

std::optional<Micros> TimeOf(const TimeFields& fields) {
  using namespace std::chrono;
  const auto [y, m, d, hour, minute, second, micros, rest] = fields;
  const year_month_day date(year{y}, month{static_cast<unsigned>(m)},
                            day{static_cast<unsigned>(d)});
  if (!date.ok() || hour >= 24 || minute >= 60 || second >= 60) {
    return std::nullopt;
  }
  const sys_time<microseconds> time = sys_days(date) + hours(hour) +
                                      minutes(minute) + seconds(second) +
                                      microseconds(micros);
  return time.time_since_epoch().count();
}

// `tenths` of `unit`, with the decimal while it is below 10. Cut, not rounded:
// 9.96 must not become 10.0.
std::string Short(std::uint64_t tenths, const char* unit) {
  constexpr std::uint64_t kLong = 100;
  std::string text = std::to_string(tenths / 10);
  if (tenths < kLong) {
    text += "." + std::to_string(tenths % 10);
  }
  return text + unit;
}

}  // namespace

std::optional<std::int64_t> ToNumber(std::string_view text) {
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end ? std::optional(number)
                                             : std::nullopt;
}

Micros Now() {
  using namespace std::chrono;
  return duration_cast<microseconds>(system_clock::now().time_since_epoch())
      .count();
}

std::optional<Micros> ParseLogTime(std::string_view text) {
  if (text.size() < kTimeShape.size()) {
    return std::nullopt;
  }
  TimeFields fields{};
  auto field = fields.begin();
  for (std::size_t i = 0; i < kTimeShape.size(); ++i) {
    const bool is_digit = text[i] >= '0' && text[i] <= '9';
    if (kTimeShape[i] == 'd' ? !is_digit : text[i] != kTimeShape[i]) {
      return std::nullopt;
    }
    if (is_digit) {
      *field = *field * 10 + (text[i] - '0');
    } else {
      ++field;
    }
  }
  return TimeOf(fields);
}

std::optional<Micros> ParseSince(std::string_view text, Micros now) {
  if (const auto span = ParseSpan(text)) {
    return now - *span;
  }
  if (text.ends_with('Z')) {
    text.remove_suffix(1);
  }
  // Whole up to the day, the minute, the second or the microsecond.
  constexpr std::string_view kMidnight = "0000-00-00T00:00:00.000000Z";
  for (const std::size_t length : {10U, 16U, 19U, 26U}) {
    if (text.size() == length) {
      return ParseLogTime(std::string(text).append(kMidnight.substr(length)));
    }
  }
  return std::nullopt;
}

std::string TimeText(Micros time) {
  const auto seconds = static_cast<std::time_t>(time / kMicrosPerSecond);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text.data();
}

std::string SpanText(Micros span) {
  span = std::max<Micros>(span, 0);
  if (span < kMicrosPerSecond) {
    return std::to_string(span / 1000) + "ms";
  }
  if (span < kMinute) {
    constexpr Micros kTenth = kMicrosPerSecond / 10;
    return Short(static_cast<std::uint64_t>(span / kTenth), "s");
  }
  if (span < kHour) {
    return std::to_string(span / kMinute) + "m";
  }
  return span < 2 * kDay ? std::to_string(span / kHour) + "h"
                         : std::to_string(span / kDay) + "d";
}

std::string CountText(std::uint64_t count) {
  constexpr std::uint64_t kThousand = 1000;
  constexpr std::uint64_t kMillion = kThousand * kThousand;
  constexpr std::uint64_t kBillion = kThousand * kMillion;
  if (count < 100 * kThousand) {
    return std::to_string(count);
  }
  if (count < kMillion) {
    return Short(count / (kThousand / 10), "k");
  }
  return count < kBillion ? Short(count / (kMillion / 10), "M")
                          : Short(count / (kBillion / 10), "G");
}
