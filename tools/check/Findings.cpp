#include "tools/check/Findings.h"

#include <json/json.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "common/util/Utf8.h"
#include "tools/text/Characters.h"
#include "tools/text/Terminal.h"

namespace {

const char* Word(Severity severity) {
  return severity == Severity::kError ? "error" : "warning";
}

// "1 error", "2 errors"
std::string Counted(std::size_t count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

// The subject of the finding's sentence.
std::string Subject(const Place& place) {
  const std::string item =
      place.item ? "item " + std::to_string(*place.item) : "";
  if (place.key.empty()) {
    return item.empty() ? "the file" : item;
  }
  return item + (item.empty() ? "" : ": ") + Quoted(place.key);
}

std::string Outcome(const CheckedItem& item) {
  if (!item.name) {
    return "skipped";
  }
  return (!item.vector           ? "never starts its program"
          : item.vector->empty() ? "(no arguments at all)"
                                 : ShellQuoted(*item.vector)) +
         (item.runs ? "" : " (replaced by a later item)");
}

// "items.json:1:2", or the path alone for a finding without a place.
std::string Location(const std::string& path, const Place& place) {
  return Printable(path) + (place.line == 0
                                ? ""
                                : ":" + std::to_string(place.line) + ":" +
                                      std::to_string(place.column));
}

std::string Lines(const std::string& path, const Finding& finding,
                  bool coloured) {
  const Severity severity = finding.rule->severity;
  return Location(path, finding.place) + ": " +
         Coloured(std::string(Word(severity)) + ":",
                  severity == Severity::kError ? Colour::kRed : Colour::kYellow,
                  coloured) +
         " " + Subject(finding.place) + " " + finding.problem + " [" +
         finding.rule->id + "]\n    effect: " + finding.effect +
         "\n    fix: " + finding.advice + "\n";
}

Json::Value JsonItem(const CheckedItem& item) {
  Json::Value object;
  object["index"] = item.index;
  object["name"] =
      item.name ? Json::Value(ValidUtf8(*item.name)) : Json::Value();
  object["runs"] = item.runs;
  Json::Value& vector = object["vector"];
  if (item.vector) {
    vector = Json::arrayValue;
    for (const std::string& word : *item.vector) {
      vector.append(ValidUtf8(word));
    }
    object["command"] = ValidUtf8(ShellQuoted(*item.vector));
  }
  return object;
}

Json::Value JsonFinding(const Finding& finding) {
  const Place& place = finding.place;
  Json::Value object;
  object["severity"] = Word(finding.rule->severity);
  object["id"] = finding.rule->id;
  if (place.line > 0) {
    object["line"] = Json::UInt64{place.line};
    object["column"] = Json::UInt64{place.column};
  }
  if (place.item) {
    object["item"] = *place.item;
  }
  if (!place.key.empty()) {
    object["key"] = ValidUtf8(place.key);
  }
  object["problem"] = ValidUtf8(finding.problem);
  object["effect"] = finding.effect;
  object["advice"] = ValidUtf8(finding.advice);
  return object;
}

// A JSON array with a line for each element. One tree of all elements would
// take longer than finding them.
template <class Elements, class ToJson>
std::string JsonArray(const Elements& elements, const ToJson& to_json) {
  Json::FastWriter writer;
  writer.omitEndingLineFeed();
  std::string text = "[";
  const char* separator = "\n";
  for (const auto& element : elements) {
    text += std::exchange(separator, ",\n") + writer.write(to_json(element));
  }
  text += "\n]";
  return text;
}

}  // namespace

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

std::size_t CountFindings(const Findings& findings, Severity severity) {
  return static_cast<std::size_t>(std::ranges::count(
      findings, severity,
      [](const Finding& finding) { return finding.rule->severity; }));
}

// One pass over the text for all places, since a file may be one long line.
void CountLines(const std::string& text, Findings& findings) {
  std::vector<Place*> places;
  for (Finding& finding : findings) {
    if (finding.place.offset) {
      places.push_back(&finding.place);
    }
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

std::string TextReport(const std::string& path, const CheckResult& result,
                       bool coloured) {
  std::string text;
  auto next = result.findings.begin();
  const auto add_findings_of = [&](std::optional<int> item) {
    for (; next != result.findings.end() && next->place.item == item; ++next) {
      text += Lines(path, *next, coloured);
    }
  };
  add_findings_of(std::nullopt);
  for (const CheckedItem& item : result.items) {
    const std::string name = item.name ? Printable(*item.name) : "(no name)";
    text += Coloured(std::to_string(item.index) + " " + name, Colour::kBold,
                     coloured) +
            ": " + Outcome(item) + "\n";
    add_findings_of(item.index);
  }
  for (; next != result.findings.end(); ++next) {
    text += Lines(path, *next, coloured);
  }
  const auto count = [&](Severity severity) {
    return Counted(CountFindings(result.findings, severity), Word(severity));
  };
  return text + Counted(result.items.size(), "item") + ", " +
         count(Severity::kError) + ", " + count(Severity::kWarning) + "\n";
}

std::string JsonReport(const std::string& path, const CheckResult& result) {
  const auto count = [&](Severity severity) {
    return std::to_string(CountFindings(result.findings, severity));
  };
  return "{\"file\":" + Json::valueToQuotedString(ValidUtf8(path).c_str()) +
         ",\n\"readable\":" + Json::valueToString(result.readable) +
         ",\n\"errors\":" + count(Severity::kError) +
         ",\n\"warnings\":" + count(Severity::kWarning) +
         ",\n\"items\":" + JsonArray(result.items, &JsonItem) +
         ",\n\"findings\":" + JsonArray(result.findings, &JsonFinding) + "}\n";
}
