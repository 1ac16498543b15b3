#include "tools/status/Report.h"

#include <json/json.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "tools/text/Characters.h"
#include "tools/text/Terminal.h"

namespace {

constexpr std::size_t kNameColumns = 26;
constexpr std::size_t kStateColumns = 24;
constexpr std::size_t kProcessColumns = 7;
constexpr std::size_t kNumberColumns = 6;

std::string Right(const std::string& text, std::size_t columns) {
  return std::string(columns + 1 - std::min(columns, text.size()), ' ') + text;
}

std::string Row(const std::string& name, const std::string& state,
                const std::array<std::string, 4>& numbers) {
  return Fitted(name, kNameColumns) + " " + Fitted(state, kStateColumns) +
         Right(numbers[0], kProcessColumns) +
         Right(numbers[1], kNumberColumns) + Right(numbers[2], kNumberColumns) +
         Right(numbers[3], kNumberColumns) + "\n";
}

std::array<std::string, 4> Numbers(const std::optional<Worker>& worker) {
  if (!worker) {
    return {"-", "-", "-", "-"};
  }
  const Process& process = worker->process;
  return {std::to_string(process.id), SpanText(process.uptime),
          SpanText(process.processor_time), MemoryText(process.resident_bytes)};
}

std::string ChainText(std::size_t links) {
  return "chain of " + std::to_string(links) +
         (links == 1 ? " process" : " processes");
}

// The words with blanks between them.
std::string CommandText(const Process& process) {
  std::string text = process.command_line;
  std::ranges::replace(text, '\0', ' ');
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string WorkerRow(const Worker& worker, const std::string& what) {
  return Row(Printable(CommandText(worker.process)),
             IsChain(worker) ? ChainText(worker.links) : what, Numbers(worker));
}

std::string StartText(const Process& process) {
  const std::time_t start = std::chrono::system_clock::to_time_t(
      std::chrono::system_clock::now() - process.uptime);
  std::tm fields{};
  gmtime_r(&start, &fields);
  std::array<char, sizeof "2026-11-21T06:20:31Z"> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &fields);
  return text.data();
}

std::string Warnings(const LauncherStatus& launcher) {
  std::string text;
  if (!launcher.problem.empty()) {
    text += "the items file cannot be used: " + launcher.problem + "\n";
  }
  if (launcher.changed) {
    text +=
        "the items file has changed since the start: the launcher does not "
        "know that\n";
  }
  if (launcher.shared) {
    text += "another launcher runs the same items file: each item runs twice\n";
  }
  return text;
}

std::string LauncherTable(const LauncherStatus& launcher, bool coloured) {
  std::string text =
      Coloured("launcher " + Printable(launcher.owner), Colour::kBold,
               coloured) +
      ", process " + std::to_string(launcher.process.id) + ", since " +
      StartText(launcher.process) + "\n" +
      Printable(launcher.items_file.native()) + "\n" +
      Coloured(Warnings(launcher), Colour::kYellow,
               coloured && !Warnings(launcher).empty()) +
      Row("item", "state", {"process", "uptime", "cpu", "memory"});
  for (const ItemStatus& item : launcher.items) {
    const bool runs = item.state == ItemState::kRunning;
    text += Coloured(
        Row(Printable(item.name), StateText(item), Numbers(item.worker)),
        runs ? Colour::kNone : Colour::kRed, coloured);
  }
  for (const Worker& worker : launcher.unassigned) {
    text += WorkerRow(worker, "of an item not known");
  }
  return text;
}

Json::Value Number(std::uint64_t number) {
  return static_cast<Json::UInt64>(number);
}

void PutWorker(const Worker& worker, Json::Value* object) {
  const Process& process = worker.process;
  (*object)["process"] = process.id;
  (*object)["chain_processes"] = Number(worker.links);
  (*object)["command"] = ValidUtf8(CommandText(process));
  (*object)["uptime_seconds"] =
      static_cast<double>(process.uptime.count()) / 1000;
  (*object)["cpu_seconds"] =
      static_cast<double>(process.processor_time.count()) / 1000;
  (*object)["memory_bytes"] = Number(process.resident_bytes);
}

Json::Value JsonWorkers(const std::vector<Worker>& workers) {
  Json::Value array(Json::arrayValue);
  for (const Worker& worker : workers) {
    PutWorker(worker, &array.append(Json::objectValue));
  }
  return array;
}

Json::Value JsonLauncher(const LauncherStatus& launcher) {
  Json::Value object;
  object["owner"] = ValidUtf8(launcher.owner);
  object["process"] = launcher.process.id;
  object["since"] = StartText(launcher.process);
  object["items_file"] = ValidUtf8(launcher.items_file.native());
  object["problem"] = ValidUtf8(launcher.problem);
  object["changed"] = launcher.changed;
  object["shared"] = launcher.shared;
  object["unassigned"] = JsonWorkers(launcher.unassigned);
  Json::Value& items = object["items"] = Json::arrayValue;
  for (const ItemStatus& item : launcher.items) {
    Json::Value& entry = items.append(Json::objectValue);
    entry["name"] = ValidUtf8(item.name);
    entry["state"] = StateText(item);
    if (item.worker) {
      PutWorker(*item.worker, &entry);
    }
  }
  return object;
}

}  // namespace

std::string StateText(const ItemStatus& item) {
  switch (item.state) {
    case ItemState::kRunning:
      return "running";
    case ItemState::kBetweenStarts:
      return "between two starts";
    case ItemState::kChain:
      return ChainText(item.worker->links);
    case ItemState::kGivenUp:
      return "given up";
    case ItemState::kNotRunning:
      break;
  }
  return "not running";
}

std::string SpanText(std::chrono::milliseconds span) {
  using namespace std::chrono;
  const auto part = [](auto count, const char* unit) {
    return std::to_string(count) + unit;
  };
  if (span < 1min) {
    return part(span / 1s, ".") + part(span % 1s / 100ms, "s");
  }
  if (span < 1h) {
    return part(span / 1min, "m") + part(span % 1h % 1min / 1s, "s");
  }
  if (span < 24h) {
    return part(span / 1h, "h") + part(span % 1h / 1min, "m");
  }
  const auto days = span / 24h;
  return part(days, "d") + (days < 100 ? part(span % 24h / 1h, "h") : "");
}

std::string MemoryText(std::uint64_t bytes) {
  constexpr double kMost = 999.95;
  double number = static_cast<double>(bytes) / 1024;
  const char* unit = "KMGTPE";
  for (; number >= kMost; ++unit) {
    number /= 1024;
  }
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%.1f%c", number, *unit);
  return text.data();
}

std::string TableReport(const Status& status, bool coloured) {
  std::string text;
  for (const LauncherStatus& launcher : status.launchers) {
    text += (text.empty() ? "" : "\n") + LauncherTable(launcher, coloured);
  }
  if (status.launchers.empty()) {
    text += "no launcher of this user runs\n";
  }
  if (!status.orphans.empty()) {
    text += "\norphans: no launcher stops them or starts them again\n";
  }
  for (const Worker& worker : status.orphans) {
    text += WorkerRow(worker, "running");
  }
  return text;
}

std::string JsonReport(const Status& status) {
  Json::Value document;
  document["orphans"] = JsonWorkers(status.orphans);
  Json::Value& launchers = document["launchers"] = Json::arrayValue;
  for (const LauncherStatus& launcher : status.launchers) {
    launchers.append(JsonLauncher(launcher));
  }
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["precisionType"] = "decimal";
  builder["precision"] = 3;
  return Json::writeString(builder, document) + "\n";
}
