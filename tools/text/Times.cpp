#include "tools/text/Times.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <ctime>
#include <initializer_list>
#include <utility>

#include "logger/Format.h"

namespace {

constexpr Micros kMinute = 60 * kMicrosPerSecond;
constexpr Micros kHour = 60 * kMinute;
constexpr Micros kDay = 24 * kHour;

std::optional<Micros> ParseSpan(std::string_view text) {
  constexpr std::int64_t kMaxNumber = 1'000'000;
  constexpr std::pair<char, Micros> kUnits[] = {
      {'s', kMicrosPerSecond}, {'m', kMinute}, {'h', kHour}, {'d', kDay}};
  for (const auto& [name, unit] : kUnits) {
    const auto number = text.ends_with(name)
                            ? ToNumber(text.substr(0, text.size() - 1))
                            : std::nullopt;
    if (number && *number >= 0 && *number <= kMaxNumber) {
      return *number * unit;
    }
  }
  return std::nullopt;
}

// For amounts from `least` on.
struct Unit {
  std::uint64_t least;
  std::uint64_t size;
  const char* name;
  bool has_decimal;  // below 10
};

// Cut, not rounded: 9.96 must not become 10.0.
std::string InUnits(std::uint64_t amount, std::initializer_list<Unit> units) {
  const Unit& unit = *std::ranges::find_if(
      units, [&](const Unit& each) { return amount >= each.least; });
  std::string text = std::to_string(amount / unit.size);
  if (unit.has_decimal && text.size() == 1) {
    text += "." + std::to_string(amount % unit.size * 10 / unit.size);
  }
  return text + unit.name;
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
  return std::chrono::system_clock::now().time_since_epoch() /
         std::chrono::microseconds(1);
}

std::optional<Micros> ParseLogTime(std::string_view text) {
  using namespace std::chrono;
  if (text.size() < kTimeShape.size()) {
    return std::nullopt;
  }
  std::array<int, 7> fields{};
  auto* field = fields.data();
  for (std::size_t i = 0; i < kTimeShape.size(); ++i) {
    const bool is_digit = text[i] >= '0' && text[i] <= '9';
    if (kTimeShape[i] == kTimeDigit ? !is_digit : text[i] != kTimeShape[i]) {
      return std::nullopt;
    }
    if (is_digit) {
      *field = *field * 10 + (text[i] - '0');
    } else {
      ++field;
    }
  }
  const auto [y, m, d, hour, minute, second, micros] = fields;
  const year_month_day date(year{y}, month{static_cast<unsigned>(m)},
                            day{static_cast<unsigned>(d)});
  if (!date.ok() || hour >= 24 || minute >= 60 || second >= 60) {
    return std::nullopt;
  }
  const auto time = sys_days(date) + hours(hour) + minutes(minute) +
                    seconds(second) + microseconds(micros);
  return time.time_since_epoch().count();
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
  return InUnits(static_cast<std::uint64_t>(std::max<Micros>(span, 0)),
                 {{2 * kDay, kDay, "d", false},
                  {kHour, kHour, "h", false},
                  {kMinute, kMinute, "m", false},
                  {kMicrosPerSecond, kMicrosPerSecond, "s", true},
                  {0, kMicrosPerSecond / 1000, "ms", false}});
}

std::string CountText(std::uint64_t count) {
  return InUnits(count, {{1'000'000'000, 1'000'000'000, "G", true},
                         {1'000'000, 1'000'000, "M", true},
                         {100'000, 1000, "k", false},
                         {0, 1, "", false}});
}
