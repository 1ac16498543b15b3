#include "tools/check/Report.h"

#include <json/json.h>

#include "tools/text/Characters.h"
#include "tools/text/ShellQuote.h"
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
  return item + (item.empty() ? "" : ": ") + "\"" + Printable(place.key) + "\"";
}

class TextWriter {
 public:
  TextWriter(const std::string& path, bool coloured)
      : path_(Printable(path)), coloured_(coloured) {}

  std::string Write(const CheckResult& result) {
    for (const CheckedItem& item : result.items) {
      WriteItem(item);
    }
    WriteFindings(result.findings);
    return text_ + Counted(result.items.size(), "item") + ", " +
           Counted(CountFindings(result, Severity::kError), "error") + ", " +
           Counted(CountFindings(result, Severity::kWarning), "warning") + "\n";
  }

 private:
  void WriteItem(const CheckedItem& item) {
    const std::string name = item.name ? Printable(*item.name) : "(no name)";
    text_ += Coloured(std::to_string(item.index) + " " + name, Colour::kBold,
                      coloured_) +
             ": " + Outcome(item) + "\n";
    WriteFindings(item.findings);
  }

  static std::string Outcome(const CheckedItem& item) {
    if (!item.name) {
      return "skipped";
    }
    const std::string fate = item.runs ? "" : " (replaced by a later item)";
    if (!item.vector) {
      return "never starts its program" + fate;
    }
    return (item.vector->empty() ? "(no arguments at all)"
                                 : ShellQuoted(*item.vector)) +
           fate;
  }

  void WriteFindings(const Findings& findings) {
    for (const Finding& finding : findings) {
      WriteFinding(finding);
    }
  }

  void WriteFinding(const Finding& finding) {
    const Rule& rule = *finding.rule;
    const Place& place = finding.place;
    text_ += path_;
    if (place.line > 0) {
      text_ +=
          ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
    }
    text_ += ": " +
             Coloured(std::string(Word(rule.severity)) + ":",
                      rule.severity == Severity::kError ? Colour::kRed
                                                        : Colour::kYellow,
                      coloured_) +
             " " + Subject(place) + " " + finding.problem + " [" + rule.id +
             "]\n    effect: " + finding.effect +
             "\n    fix: " + finding.advice + "\n";
  }

  const std::string path_;
  const bool coloured_;
  std::string text_;
};

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

void Append(Json::Value& array, const Findings& findings) {
  for (const Finding& finding : findings) {
    array.append(JsonFinding(finding));
  }
}

}  // namespace

std::string TextReport(const std::string& path, const CheckResult& result,
                       bool coloured) {
  return TextWriter(path, coloured).Write(result);
}

std::string JsonReport(const std::string& path, const CheckResult& result) {
  Json::Value report;
  report["file"] = ValidUtf8(path);
  report["readable"] = result.readable;
  report["errors"] = Json::UInt64{CountFindings(result, Severity::kError)};
  report["warnings"] = Json::UInt64{CountFindings(result, Severity::kWarning)};
  Json::Value& items = report["items"] = Json::arrayValue;
  Json::Value& findings = report["findings"] = Json::arrayValue;
  for (const CheckedItem& item : result.items) {
    items.append(JsonItem(item));
    Append(findings, item.findings);
  }
  Append(findings, result.findings);
  return Json::StyledWriter().write(report);
}
