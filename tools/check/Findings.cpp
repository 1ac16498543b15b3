#include "tools/check/Findings.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "common/util/Utf8.h"

Finding Found(RuleName rule, Place place, std::string problem,
              std::string advice) {
  std::string effect = rule->effect;
  if (rule->logged != nullptr) {
    effect.append("; it logs \"").append(rule->logged).append("\"");
  }
  if (advice.empty()) {
    advice = rule->advice;
  }
  return {rule, std::move(place), std::move(problem), std::move(effect),
          std::move(advice)};
}

std::size_t CountFindings(const CheckResult& result, Severity severity) {
  const auto count = [&](const Findings& findings) {
    return std::ranges::count(findings, severity, [](const Finding& finding) {
      return finding.rule->severity;
    });
  };
  auto total = count(result.findings);
  for (const CheckedItem& item : result.items) {
    total += count(item.findings);
  }
  return static_cast<std::size_t>(total);
}

// One pass over the text for all places, since a file may be one long line.
void CountLines(const std::string& text, CheckResult& result) {
  std::vector<Place*> places;
  const auto collect = [&](Findings& findings) {
    for (Finding& finding : findings) {
      if (finding.place.offset) {
        places.push_back(&finding.place);
      }
    }
  };
  collect(result.findings);
  for (CheckedItem& item : result.items) {
    collect(item.findings);
  }
  std::ranges::sort(places, {},
                    [](const Place* place) { return place->offset; });
  std::string_view rest = text;
  std::size_t line = 1;
  std::size_t column = 1;
  for (Place* const place : places) {
    while (!rest.empty() && text.size() - rest.size() < *place->offset) {
      const bool ends_line = rest[0] == '\n';
      line += ends_line ? 1 : 0;
      column = ends_line ? 1 : column + 1;
      rest.remove_prefix(DecodeUtf8(rest).bytes);
    }
    place->line = line;
    place->column = column;
  }
}
