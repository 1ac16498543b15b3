#include "tools/log/Times.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>

#include "logger/Format.h"

namespace {

constexpr LogMicros kMinute = 60 * kMicrosPerSecond;
constexpr LogMicros kHour = 60 * kMinute;
constexpr LogMicros kDay = 24 * kHour;

std::optional<LogMicros> ParseSpan(std::string_view text) {
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  constexpr std::int64_t kMaxNumber = 1'000'000;
  if (error != std::errc() || stop + 1 != end || number < 0 ||
      number > kMaxNumber) {
    return std::nullopt;
  }
  switch (*stop) {
    case 's':
      return number * kMicrosPerSecond;
    case 'm':
      return number * kMinute;
    case 'h':
      return number * kHour;
    case 'd':
      return number * kDay;
    default:
      return std::nullopt;
  }
}

// Year, month, day, hour, minute, second, microseconds, as `kTimeShape` has
// them, and one for what follows.
using TimeFields = std::array<int, 8>;

std::optional<LogMicros> TimeOf(const TimeFields& fields) {
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

// `number` with one decimal while it is below 10.
std::string Short(double number, const char* unit) {
  constexpr double kLong = 10;
  std::array<char, 32> text{};
  // Cut, not rounded: 9.96 must not become 10.0.
  const double shown =
      number < kLong
          ? static_cast<double>(static_cast<std::int64_t>(number * 10)) / 10
          : static_cast<double>(static_cast<std::int64_t>(number));
  std::snprintf(text.data(), text.size(), number < kLong ? "%.1f%s" : "%.0f%s",
                shown, unit);
  return text.data();
}

}  // namespace

LogMicros Now() {
  using namespace std::chrono;
  return duration_cast<microseconds>(system_clock::now().time_since_epoch())
      .count();
}

std::optional<LogMicros> ParseLogTime(std::string_view text) {
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

std::optional<LogMicros> ParseSince(std::string_view text, LogMicros now) {
  if (const auto span = ParseSpan(text)) {
    return now - *span;
  }
  if (text.ends_with('Z')) {
    text.remove_suffix(1);
  }
  constexpr std::string_view kMidnight = "T00:00:00.000000Z";
  for (const std::string_view whole :
       {"dddd-dd-dd", "dddd-dd-ddTdd:dd", "dddd-dd-ddTdd:dd:dd",
        "dddd-dd-ddTdd:dd:dd.dddddd"}) {
    if (text.size() == whole.size()) {
      const std::size_t missing = kTimeShape.size() - whole.size();
      return ParseLogTime(std::string(text).append(
          kMidnight.substr(kMidnight.size() - missing)));
    }
  }
  return std::nullopt;
}

std::string TimeText(LogMicros time) {
  using namespace std::chrono;
  const sys_time<microseconds> point{microseconds(time)};
  const auto midnight = floor<days>(point);
  const year_month_day date(midnight);
  const hh_mm_ss clock(floor<seconds>(point - midnight));
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ",
                static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text.data();
}

std::string SpanText(LogMicros span) {
  span = std::max<LogMicros>(span, 0);
  constexpr LogMicros kManyHours = 48 * kHour;
  if (span < kMicrosPerSecond) {
    return std::to_string(span / 1000) + "ms";
  }
  if (span < kMinute) {
    return Short(static_cast<double>(span) / kMicrosPerSecond, "s");
  }
  if (span < kHour) {
    return std::to_string(span / kMinute) + "m";
  }
  return span < kManyHours ? std::to_string(span / kHour) + "h"
                           : std::to_string(span / kDay) + "d";
}

std::string CountText(std::uint64_t count) {
  constexpr std::uint64_t kShown = 100'000;
  constexpr double kThousand = 1000;
  if (count < kShown) {
    return std::to_string(count);
  }
  double number = static_cast<double>(count) / kThousand;
  for (const char* const unit : {"k", "M"}) {
    if (number < kThousand) {
      return Short(number, unit);
    }
    number /= kThousand;
  }
  return Short(number, "G");
}
