#include "tools/check/KeyNames.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr std::array<const char*, 4> kKeys{"name", "program", "argc", "args"};

// What other supervisors and programmers call them.
constexpr std::array<std::pair<const char*, const char*>, 11> kOtherNames{{
    {"arg", "args"},
    {"arguments", "args"},
    {"argv", "args"},
    {"command", "program"},
    {"cmd", "program"},
    {"exec", "program"},
    {"executable", "program"},
    {"id", "name"},
    {"label", "name"},
    {"params", "args"},
    {"path", "program"},
}};

// The number of changes that turn `a` into `b`.
std::size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) {
    row[j] = j;
  }
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
    }
  }
  return row[b.size()];
}

std::string LowerCase(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) {
    return static_cast<char>(std::tolower(c));
  });
  return text;
}

}  // namespace

std::string KeyMeantBy(const std::string& key) {
  constexpr std::size_t kSlips = 2;
  const std::string lower = LowerCase(key);
  const auto* const other = std::ranges::find(
      kOtherNames, lower, &std::pair<const char*, const char*>::first);
  if (other != kOtherNames.end()) {
    return other->second;
  }
  const auto distance = [&](const char* known) {
    return EditDistance(lower, known);
  };
  const char* const nearest = std::ranges::min(kKeys, {}, distance);
  return distance(nearest) <= kSlips ? nearest : "";
}
