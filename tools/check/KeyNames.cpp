#include "tools/check/KeyNames.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <numeric>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr std::array kKeys{"name", "program", "argc", "args"};

using OtherName = std::pair<std::string_view, const char*>;

// Names that other supervisors and programmers use for them.
constexpr OtherName kOtherNames[] = {
    {"id", "name"},      {"label", "name"},        {"cmd", "program"},
    {"exec", "program"}, {"path", "program"},      {"command", "program"},
    {"arg", "args"},     {"argv", "args"},         {"arguments", "args"},
    {"params", "args"},  {"executable", "program"}};

// The number of changes that turn `a` into `b`.
std::size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({row[j + 1] + 1, row[j] + 1, replaced});
    }
  }
  return row.back();
}

}  // namespace

std::string KeyMeantBy(const std::string& key) {
  constexpr std::size_t kSlips = 2;
  std::string lower = key;
  std::ranges::transform(lower, lower.begin(), [](unsigned char c) {
    return static_cast<char>(std::tolower(c));
  });
  const auto* const other =
      std::ranges::find(kOtherNames, lower, &OtherName::first);
  if (other != std::end(kOtherNames)) {
    return other->second;
  }
  const auto distance = [&](const char* known) {
    return EditDistance(lower, known);
  };
  const char* const nearest = std::ranges::min(kKeys, {}, distance);
  return distance(nearest) <= kSlips ? nearest : "";
}

std::optional<std::uint64_t> IndexOf(const std::string& key) {
  std::uint64_t index = 0;
  std::from_chars(key.data(), key.data() + key.size(), index);
  return std::to_string(index) == key ? std::optional(index) : std::nullopt;
}
