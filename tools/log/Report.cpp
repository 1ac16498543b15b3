#include "tools/log/Report.h"

#include <algorithm>

#include "tools/text/Characters.h"
#include "tools/text/JsonFields.h"
#include "tools/log/Times.h"
#include "tools/log/WaitStatus.h"

namespace {

constexpr std::size_t kNameWidth = 16;

std::string Column(const std::string& text, std::size_t width) {
  const std::size_t used = DisplayWidth(text);
  return std::string(1 + width - std::min(width, used), ' ') + text;
}

std::string Row(const std::string& name, const std::string& starts,
                const std::string& ends, const std::string& last_end,
                const std::string& ago, const std::string& now,
                const std::string& worst, const std::string& longest,
                const std::string& state) {
  return Fitted(name, kNameWidth) + Column(starts, 6) + Column(ends, 5) + "  " +
         Fitted(last_end, 12) + Column(ago, 5) + Column(now, 5) +
         Column(worst, 5) + Column(longest, 7) + "  " + state + "\n";
}

bool HasDerived(const ItemHistory& item) {
  return item.HasDerivedStarts() || item.HasDerivedState();
}

// Looping shows in the log itself.
std::string StateText(const ItemHistory& item, LogMicros now) {
  const ItemState state = item.StateAt(now);
  const bool derived = item.HasDerivedState() && state != ItemState::kLooping;
  return Describe(state) + std::string(derived ? "~" : "");
}

std::string ItemRow(const ItemHistory& item, LogMicros now) {
  const bool ended = item.ends > 0;
  return Row(
      Printable(item.name),
      CountText(item.Starts()) + (item.HasDerivedStarts() ? "~" : ""),
      CountText(item.ends), ended ? WaitStatus(item.last_status).Text() : "-",
      ended ? SpanText(now - item.last_end) : "-",
      CountText(item.rate.At(now / kMicrosPerSecond)),
      CountText(item.rate.Worst()),
      item.longest ? SpanText(*item.longest) : "-", StateText(item, now));
}

// `what` and the names of the items in one state, as many as fit a line;
// nothing when there are none.
std::string StateNote(const History& history, LogMicros now, ItemState state,
                      const std::string& what) {
  constexpr std::size_t kRoom = 68;  // leaves some for what is left out
  std::string line;
  std::size_t left_out = 0;
  for (const ItemHistory& item : history.Items()) {
    if (item.StateAt(now) != state) {
      continue;
    }
    const std::string name = Cut(Printable(item.name), kNameWidth);
    if (line.empty()) {
      line = what + name;
    } else if (left_out == 0 &&
               DisplayWidth(line) + DisplayWidth(name) + 2 <= kRoom) {
      line.append(", ").append(name);
    } else {
      ++left_out;
    }
  }
  if (left_out > 0) {
    line += " and " + std::to_string(left_out) + " more";
  }
  return line.empty() ? "" : line + "\n";
}

std::string Source(const std::vector<std::string>& files,
                   const History& history) {
  std::string text;
  if (!files.empty()) {
    text = Printable(files.back());
    if (files.size() > 1) {
      text += " and " + std::to_string(files.size() - 1) + " older";
    }
    text += "\n";
  }
  if (history.Lines() > 0) {
    text += TimeText(history.First()) + " to " + TimeText(history.Last()) +
            ", " + std::to_string(history.Lines()) + " lines\n";
  }
  if (history.LauncherCount() > 0) {
    const LauncherSeen last = history.Launchers().back();
    text += "launchers seen: " + std::to_string(history.LauncherCount()) +
            ", the last one process " + std::to_string(last.process) +
            ", until " + TimeText(last.last) + "\n";
  }
  return text;
}

std::string Notes(const History& history, LogMicros now) {
  std::string text;
  const auto names = [&](ItemState state, const std::string& what) {
    text += StateNote(history, now, state, what);
  };
  const auto count = [&](const std::string& what, std::uint64_t number) {
    text += number == 0 ? "" : what + std::to_string(number) + "\n";
  };
  names(ItemState::kLooping, "looping: ");
  names(ItemState::kSilent, "silent (launcher stopped or killed): ");
  names(ItemState::kChain, "chain (cannot be executed; processes pile up): ");
  names(ItemState::kNoFork, "no fork (given up for good): ");
  names(ItemState::kNoProgram, "no path (an empty \"program\"): ");
  count("items without a name: ", history.NamelessItems());
  count("items files that could not be parsed: ", history.FailedLaunches());
  count("lines lost: ", history.LostLines());
  count("lines that are no log's: ", history.UnreadableLines());
  if (std::ranges::any_of(history.Items(), HasDerived)) {
    text += "~ derived from the ends: starts are logged at level DEBUG only\n";
  }
  return text;
}

JsonObject JsonEnd(const ItemHistory& item) {
  const WaitStatus status(item.last_status);
  JsonObject end = JsonObject::GetEmptyObject();
  PutText(end, "time", TimeText(item.last_end));
  PutNumber(end, "status", item.last_status);
  PutText(end, "text", status.Text());
  if (status.signal == 0) {
    PutNumber(end, "code", status.code);
  } else {
    PutText(end, "signal", SignalName(status.signal));
    PutBool(end, "core", status.core);
  }
  return end;
}

void PutCount(JsonObject& object, const char* key, std::uint64_t count) {
  PutNumber(object, key, static_cast<std::int64_t>(count));
}

JsonObject JsonItem(const ItemHistory& item, LogMicros now) {
  JsonObject object = JsonObject::GetEmptyObject();
  PutText(object, "name", Unescaped(item.name));
  PutCount(object, "starts", item.Starts());
  PutBool(object, "starts_derived", item.HasDerivedStarts());
  PutCount(object, "ends", item.ends);
  PutNull(object, "last_end");
  if (item.ends > 0) {
    object.Insert("last_end", JsonEnd(item));
  }
  PutCount(object, "per_minute_now", item.rate.At(now / kMicrosPerSecond));
  PutCount(object, "per_minute_worst", item.rate.Worst());
  PutNull(object, "longest_life_ms");
  if (item.longest) {
    PutNumber(object, "longest_life_ms", *item.longest / 1000);
  }
  PutCount(object, "failed_forks", item.failed_forks);
  PutCount(object, "chained_copies", item.copies);
  PutText(object, "state", Describe(item.StateAt(now)));
  PutBool(object, "state_derived", item.HasDerivedState());
  return object;
}

JsonObject JsonLauncher(const LauncherSeen& launcher) {
  JsonObject object = JsonObject::GetEmptyObject();
  PutNumber(object, "process", launcher.process);
  PutText(object, "first", TimeText(launcher.first));
  PutText(object, "last", TimeText(launcher.last));
  return object;
}

}  // namespace

std::string TableReport(const std::vector<std::string>& files,
                        const History& history, LogMicros now) {
  std::string text = Source(files, history) + "\n";
  text += Row("ITEM", "STARTS", "ENDS", "LAST END", "AGO", "/MIN", "WORST",
              "LONGEST", "STATE");
  for (const ItemHistory& item : history.Items()) {
    text += ItemRow(item, now);
  }
  const std::string notes = Notes(history, now);
  return text + (notes.empty() ? "" : "\n" + notes);
}

std::string JsonReport(const std::vector<std::string>& files,
                       const History& history, LogMicros now) {
  JsonObject report = JsonObject::GetEmptyObject();
  JsonObject names = JsonArray();
  for (const std::string& file : files) {
    names.InsertArrayItem(ValidUtf8(file));
  }
  report.Insert("files", names);
  PutText(report, "now", TimeText(now));
  PutCount(report, "lines", history.Lines());
  if (history.Lines() > 0) {
    PutText(report, "first", TimeText(history.First()));
    PutText(report, "last", TimeText(history.Last()));
  }
  PutCount(report, "lost_lines", history.LostLines());
  PutCount(report, "unreadable_lines", history.UnreadableLines());
  PutCount(report, "nameless_items", history.NamelessItems());
  PutCount(report, "failed_launches", history.FailedLaunches());
  PutCount(report, "launcher_count", history.LauncherCount());
  JsonObject launchers = JsonArray();
  for (const LauncherSeen& launcher : history.Launchers()) {
    JsonObject object = JsonLauncher(launcher);
    launchers.InsertArrayItem(object);
  }
  report.Insert("launchers", launchers);
  JsonObject items = JsonArray();
  for (const ItemHistory& item : history.Items()) {
    JsonObject object = JsonItem(item, now);
    items.InsertArrayItem(object);
  }
  report.Insert("items", items);
  return report.ToStyledText() + "\n";
}

std::string EventLine(const LogEvent& event) {
  const std::string name = Printable(event.name);
  const std::string start = TimeText(event.time) + " ";
  switch (event.kind) {
    case LogEventKind::kStart:
      return start + name + " starts\n";
    case LogEventKind::kEnd:
      return start + name + " (process " + std::to_string(event.child) +
             ") ended: " + WaitStatus(event.status).Text() + "\n";
    case LogEventKind::kForkFailed:
      return start + name + " could not be forked and is given up\n";
    case LogEventKind::kNoProgram:
      return start + name + " has an empty program path\n";
    case LogEventKind::kNameless:
      return start + "an item has no name and is skipped\n";
    case LogEventKind::kUnparsable:
      return start + "the items file could not be parsed\n";
    case LogEventKind::kLost:
      return start + std::to_string(event.lost) + " lines lost\n";
    case LogEventKind::kOther:
      break;
  }
  return "";
}
