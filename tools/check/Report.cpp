#include "tools/check/Report.h"

#include <algorithm>

#include "tools/check/JsonSource.h"
#include "tools/text/Characters.h"
#include "tools/text/JsonFields.h"
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

std::string Subject(const Finding& finding) {
  std::string subject;
  if (finding.item) {
    subject = "item " + std::to_string(*finding.item);
  }
  if (!finding.key.empty()) {
    subject += subject.empty() ? "" : ", ";
    subject += "\"" + Printable(finding.key) + "\"";
  }
  return subject;
}

class TextWriter {
 public:
  TextWriter(const std::string& path, const CheckResult& result, bool coloured)
      : path_(Printable(path)), result_(result), coloured_(coloured) {}

  std::string Write() {
    for (const CheckedItem& item : result_.items) {
      WriteItem(item);
    }
    for (const Finding& finding : result_.findings) {
      if (!finding.item || !HasItem(*finding.item)) {
        WriteFinding(finding);
      }
    }
    WriteSummary();
    return text_;
  }

 private:
  bool HasItem(int index) const {
    return std::ranges::find(result_.items, index, &CheckedItem::index) !=
           result_.items.end();
  }

  void WriteItem(const CheckedItem& item) {
    const std::string name = item.name ? Printable(*item.name) : "(no name)";
    text_ += Coloured(std::to_string(item.index) + " " + name, Colour::kBold,
                      coloured_) +
             ": " + Outcome(item) + "\n";
    for (const Finding& finding : result_.findings) {
      if (finding.item == item.index) {
        WriteFinding(finding);
      }
    }
  }

  static std::string Outcome(const CheckedItem& item) {
    if (!item.name) {
      return "skipped";
    }
    const std::string fate = item.runs ? "" : " (replaced by a later item)";
    if (!item.vector) {
      return "never gets as far as its program" + fate;
    }
    return (item.vector->empty() ? "(no arguments at all)"
                                 : ShellQuoted(*item.vector)) +
           fate;
  }

  void WriteFinding(const Finding& finding) {
    const bool is_error = finding.severity == Severity::kError;
    text_ += path_;
    if (finding.offset) {
      const Place place = PlaceOf(result_.text, *finding.offset);
      text_ +=
          ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
    }
    const std::string subject = Subject(finding);
    text_ += ": " +
             Coloured(std::string(Word(finding.severity)) + ":",
                      is_error ? Colour::kRed : Colour::kYellow, coloured_) +
             " " + subject + (subject.empty() ? "" : ": ") + finding.problem +
             "\n    what happens: " + finding.effect +
             "\n    instead: " + finding.advice + "\n";
  }

  void WriteSummary() {
    text_ += Counted(result_.items.size(), "item") + ", " +
             Counted(CountFindings(result_, Severity::kError), "error") + ", " +
             Counted(CountFindings(result_, Severity::kWarning), "warning") +
             "\n";
  }

  const std::string path_;
  const CheckResult& result_;
  const bool coloured_;
  std::string text_;
};

JsonObject JsonItem(const CheckedItem& item) {
  JsonObject object = JsonObject::GetEmptyObject();
  PutNumber(object, "index", item.index);
  if (item.name) {
    PutText(object, "name", *item.name);
  } else {
    PutNull(object, "name");
  }
  PutBool(object, "runs", item.runs);
  PutNull(object, "vector");
  if (item.vector) {
    JsonObject words = JsonArray();
    for (const std::string& word : *item.vector) {
      words.InsertArrayItem(ValidUtf8(word));
    }
    object.Insert("vector", words);
    PutText(object, "command", ShellQuoted(*item.vector));
  }
  return object;
}

JsonObject JsonFinding(const Finding& finding, const std::string& text) {
  JsonObject object = JsonObject::GetEmptyObject();
  PutText(object, "severity", Word(finding.severity));
  PutText(object, "id", finding.id);
  if (finding.offset) {
    const Place place = PlaceOf(text, *finding.offset);
    PutNumber(object, "line", static_cast<std::int64_t>(place.line));
    PutNumber(object, "column", static_cast<std::int64_t>(place.column));
  }
  if (finding.item) {
    PutNumber(object, "item", *finding.item);
  }
  if (!finding.key.empty()) {
    PutText(object, "key", finding.key);
  }
  PutText(object, "problem", finding.problem);
  PutText(object, "effect", finding.effect);
  PutText(object, "advice", finding.advice);
  return object;
}

}  // namespace

std::string TextReport(const std::string& path, const CheckResult& result,
                       bool coloured) {
  return TextWriter(path, result, coloured).Write();
}

std::string JsonReport(const std::string& path, const CheckResult& result) {
  JsonObject report = JsonObject::GetEmptyObject();
  PutText(report, "file", path);
  PutBool(report, "readable", result.readable);
  for (const Severity severity : {Severity::kError, Severity::kWarning}) {
    PutNumber(report, severity == Severity::kError ? "errors" : "warnings",
              static_cast<std::int64_t>(CountFindings(result, severity)));
  }
  JsonObject items = JsonArray();
  for (const CheckedItem& item : result.items) {
    JsonObject object = JsonItem(item);
    items.InsertArrayItem(object);
  }
  report.Insert("items", items);
  JsonObject findings = JsonArray();
  for (const Finding& finding : result.findings) {
    JsonObject object = JsonFinding(finding, result.text);
    findings.InsertArrayItem(object);
  }
  report.Insert("findings", findings);
  return report.ToStyledText() + "\n";
}

std::size_t CountFindings(const CheckResult& result, Severity severity) {
  return static_cast<std::size_t>(
      std::ranges::count(result.findings, severity, &Finding::severity));
}
