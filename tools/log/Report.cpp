#include "tools/log/Report.h"

#include <json/json.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

#include "tools/log/Table.h"
#include "tools/text/Characters.h"

namespace {

// The least widths of a name and of the causes of ends.
constexpr std::size_t kLeastName = 12;
constexpr std::size_t kLeastCauses = 8;

const std::vector<TableColumn> kColumns{
    {"ITEM", false, kLeastName},  {"STARTS", true, kAnyWidth},
    {"ENDS", true, kAnyWidth},    {"AGO", true, kAnyWidth},
    {"/MIN", true, kAnyWidth},    {"WORST", true, kAnyWidth},
    {"LONGEST", true, kAnyWidth}, {"UP", true, kAnyWidth},
    {"STATE", false, kAnyWidth},  {"ENDED BY", false, kLeastCauses}};

// Whether the item's last state was derived. The log itself shows a loop, and
// the process table shows that the launcher is gone.
bool ShowsDerivedState(const ItemNow& item) {
  return item.history.HasDerivedState() && item.state != ItemState::kLooping &&
         item.state != ItemState::kGone;
}

using Causes = std::vector<std::pair<int, std::uint64_t>>;

// The wait statuses of the item's ends and how many ends had each: the last
// end's first, then the most frequent.
Causes CausesOf(const ItemHistory& item) {
  Causes causes(item.statuses.begin(), item.statuses.end());
  std::ranges::stable_sort(causes, [&](const auto& a, const auto& b) {
    return std::pair(a.first == item.last_end.status, a.second) >
           std::pair(b.first == item.last_end.status, b.second);
  });
  return causes;
}

std::string CausesText(const ItemHistory& item) {
  std::string text;
  for (const auto& [status, count] : CausesOf(item)) {
    text += text.empty() ? "" : ", ";
    text += WaitStatus(status).Text();
    text += count == 1 ? "" : " x " + CountText(count);
  }
  return text.empty() ? "-" : text;
}

std::string SpanOrDash(std::optional<Micros> span) {
  return span ? SpanText(*span) : "-";
}

TableRow ItemRow(const ItemNow& item, Micros now) {
  const ItemHistory& history = item.history;
  return {
      Printable(history.name),
      CountText(history.Starts()) + (history.logs_starts ? "" : "~"),
      CountText(history.ends),
      history.ends > 0 ? SpanText(now - history.last_end.time) : "-",
      CountText(history.rate.At(now / kMicrosPerSecond)),
      CountText(history.rate.Worst()),
      SpanOrDash(item.longest),
      SpanOrDash(item.uptime),
      TextOf(item.state).name + std::string(ShowsDerivedState(item) ? "~" : ""),
      CausesText(history)};
}

std::string LauncherText(const History& history, const Present& present) {
  if (history.Totals().launchers == 0) {
    return "";
  }
  const LauncherSeen last = history.Launchers().back();
  return "launchers: " + std::to_string(history.Totals().launchers) +
         ", last line at " + TimeText(last.last) + " by process " +
         std::to_string(last.process) +
         (present.exists(last.process) ? "" : ", no longer there") +
         "\nlevel: " +
         (last.logs_starts
              ? "DEBUG\n"
              : "above DEBUG; starts, and so chains, cannot be seen\n");
}

std::string Source(const Report& report) {
  const LogTotals& totals = report.history.Totals();
  std::string text = report.files.empty()
                         ? Printable(report.path) + ": does not exist yet"
                         : Printable(report.files.back());
  if (report.files.size() > 1) {
    text += " and " + std::to_string(report.files.size() - 1) + " older";
  }
  text += totals.lines > 0
              ? "\n" + TimeText(totals.first) + " to " + TimeText(totals.last) +
                    ", lines: " + std::to_string(totals.lines) + "\n"
              : "\nlines: 0; above level DEBUG, an item is not logged until it "
                "ends\n";
  return text + LauncherText(report.history, report.present);
}

// `what` and as many of the names as fit on a line of `width` columns. The
// first one is cut if necessary.
std::string NamesLine(std::string what, const std::vector<std::string>& names,
                      std::size_t width) {
  constexpr std::size_t kMoreWidth = 16;  // " and 12345 more"
  const std::size_t room = width - std::min(width, kMoreWidth);
  what += Cut(names[0], room - std::min(room, DisplayWidth(what)));
  std::size_t shown = 1;
  for (; shown < names.size(); ++shown) {
    const std::string part = ", " + names[shown];
    if (DisplayWidth(what) + DisplayWidth(part) > room) {
      return what + " and " + std::to_string(names.size() - shown) + " more\n";
    }
    what += part;
  }
  return what + "\n";
}

std::string CountLine(const std::string& what, std::uint64_t count) {
  return count == 0 ? "" : what + ": " + std::to_string(count) + "\n";
}

std::string Remarks(const Report& report, const std::vector<ItemNow>& items) {
  const LogTotals& totals = report.history.Totals();
  std::string text = CountLine("items without a name", totals.nameless) +
                     CountLine("cut lines", totals.cut) +
                     CountLine("unrecognised lines", totals.unrecognised);
  if (std::ranges::any_of(items, [](const ItemNow& item) {
        return !item.history.logs_starts || item.history.HasDerivedState();
      })) {
    text +=
        "~ derived from the ends: only the levels VERBOSE and DEBUG log "
        "starts\n";
  }
  return text;
}

Json::Value JsonMilliseconds(std::optional<Micros> span) {
  return span ? Json::Value(*span / 1000) : Json::Value();
}

Json::Value JsonStatus(int word) {
  const WaitStatus status(word);
  Json::Value json;
  json["status"] = word;
  json["text"] = status.Text();
  if (status.signal == 0) {
    json["code"] = status.code;
  } else {
    json["signal"] = SignalName(status.signal);
    json["core"] = status.core;
  }
  return json;
}

Json::Value JsonItem(const ItemNow& item, Micros now) {
  const ItemHistory& history = item.history;
  Json::Value json;
  json["name"] = ValidUtf8(Unescaped(history.name));
  json["starts"] = history.Starts();
  json["starts_derived"] = !history.logs_starts;
  json["ends"] = history.ends;
  json["last_end"] = Json::nullValue;
  if (history.ends > 0) {
    json["last_end"] = JsonStatus(history.last_end.status);
    json["last_end"]["time"] = TimeText(history.last_end.time);
  }
  json["causes"] = Json::arrayValue;
  for (const auto& [status, count] : CausesOf(history)) {
    json["causes"].append(JsonStatus(status))["count"] = count;
  }
  json["per_minute_now"] = history.rate.At(now / kMicrosPerSecond);
  json["per_minute_worst"] = history.rate.Worst();
  json["longest_life_ms"] = JsonMilliseconds(item.longest);
  json["uptime_ms"] = JsonMilliseconds(item.uptime);
  json["failed_forks"] = history.failed_forks;
  json["chained_starts"] = history.chained_starts;
  json["state"] = TextOf(item.state).name;
  json["state_derived"] = history.HasDerivedState();
  return json;
}

Json::Value JsonLauncher(const LauncherSeen& launcher, const Present& present) {
  Json::Value json;
  json["process"] = launcher.process;
  json["exists"] = present.exists(launcher.process);
  json["first"] = TimeText(launcher.first);
  json["last"] = TimeText(launcher.last);
  json["logs_starts"] = launcher.logs_starts;
  return json;
}

std::string LostLines(std::uint64_t count, int error) {
  return "lost lines: " + std::to_string(count) + " (" + std::strerror(error) +
         ")";
}

std::string EventWords(const LogEvent& event) {
  const std::string name = Printable(event.name);
  switch (event.kind) {
    case LogEventKind::kStart:
      return name + (event.IsFromForkedChild()
                         ? " cannot be executed; tried again"
                         : " starts");
    case LogEventKind::kEnd:
      return name + " (process " + std::to_string(event.child) +
             ") ended: " + WaitStatus(event.status).Text();
    case LogEventKind::kForkFailed:
      return name + " could not be forked and is given up";
    case LogEventKind::kNoProgram:
      return name + " has an empty program path";
    case LogEventKind::kNameless:
      return "an item has no name and is skipped";
    case LogEventKind::kParseFailed:
      return "the items file could not be parsed";
    case LogEventKind::kLost:
      return LostLines(event.lost, event.error);
    case LogEventKind::kCut:
      return "a message was cut";
    case LogEventKind::kOther:
      break;
  }
  return "";
}

}  // namespace

std::string Report::Table(std::size_t width) const {
  const auto items = history.Items(present);
  std::vector<TableRow> rows;
  rows.reserve(items.size());
  for (const ItemNow& item : items) {
    rows.push_back(ItemRow(item, present.now));
  }
  const std::string notes = Alerts(width) + Remarks(*this, items);
  return Source(*this) + "\n" + TableText(kColumns, std::move(rows), width) +
         (notes.empty() ? "" : "\n" + notes);
}

std::string Report::Alerts(std::size_t width) const {
  std::map<ItemState, std::vector<std::string>> names;
  for (const ItemNow& item : history.Items(present)) {
    names[item.state].push_back(Printable(item.history.name));
  }
  std::string text;
  for (const auto& [state, items] : names) {
    const StateText& words = TextOf(state);
    if (words.meaning != nullptr) {
      text += NamesLine(
          std::string(words.name) + " (" + words.meaning + "): ", items, width);
    }
  }
  const LogTotals& totals = history.Totals();
  text +=
      CountLine("items files that could not be parsed", totals.parse_failed);
  if (totals.lost > 0) {
    text += LostLines(totals.lost, totals.lost_error) + "\n";
  }
  return text;
}

std::string Report::Json() const {
  const LogTotals& totals = history.Totals();
  Json::Value json;
  json["files"] = Json::arrayValue;
  for (const std::string& file : files) {
    json["files"].append(ValidUtf8(file));
  }
  json["now"] = TimeText(present.now);
  json["lines"] = totals.lines;
  if (totals.lines > 0) {
    json["first"] = TimeText(totals.first);
    json["last"] = TimeText(totals.last);
  }
  json["lost_lines"] = totals.lost;
  json["cut_lines"] = totals.cut;
  json["unreadable_lines"] = totals.unrecognised;
  json["nameless_items"] = totals.nameless;
  json["failed_launches"] = totals.parse_failed;
  json["launcher_count"] = totals.launchers;
  json["launchers"] = Json::arrayValue;
  for (const LauncherSeen& launcher : history.Launchers()) {
    json["launchers"].append(JsonLauncher(launcher, present));
  }
  json["items"] = Json::arrayValue;
  for (const ItemNow& item : history.Items(present)) {
    json["items"].append(JsonItem(item, present.now));
  }
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "  ";
  return Json::writeString(writer, json) + "\n";
}

std::string EventLine(const LogEvent& event) {
  const std::string words = EventWords(event);
  return words.empty() ? "" : TimeText(event.time) + " " + words + "\n";
}
