#include <json/json.h>

#include <array>

#include "common/util/StringHelpers.h"
#include "tools/status/Status.h"
#include "tools/text/Characters.h"
#include "tools/text/Terminal.h"
#include "tools/text/Times.h"

namespace {

constexpr std::size_t kNameColumns = 24;
constexpr std::size_t kStateColumns = 23;
constexpr int kNumberColumns = 8;

using Numbers = std::array<std::string, 4>;

std::string Row(const std::string& name, const std::string& state,
                const Numbers& numbers) {
  std::string row =
      Fitted(name, kNameColumns) + " " + Fitted(state, kStateColumns);
  for (const std::string& number : numbers) {
    row += string_format("%*s", kNumberColumns, number.c_str());
  }
  return row + "\n";
}

// In the largest unit that gives at least 1.
std::string MemoryText(std::uint64_t bytes) {
  constexpr double kStep = 1024;
  double amount = static_cast<double>(bytes) / kStep;
  const char* unit = "KMGT";
  for (; amount >= kStep && *unit != 'T'; ++unit) {
    amount /= kStep;
  }
  return string_format("%.1f%c", amount, *unit);
}

Numbers WorkerNumbers(const std::optional<Worker>& worker) {
  if (!worker) {
    return {"-", "-", "-", "-"};
  }
  const Process& process = worker->process;
  return {std::to_string(process.id), SpanText(process.uptime.count()),
          SpanText(process.processor_time.count()),
          MemoryText(process.resident_bytes)};
}

// Empty if there are no workers.
std::string WorkerTable(const std::string& title,
                        const std::vector<Worker>& workers) {
  std::string text = workers.empty() ? "" : title + ":\n";
  for (const Worker& worker : workers) {
    text += Row(ShellQuoted(worker.process.arguments), WorkerState(worker),
                WorkerNumbers(worker));
  }
  return text;
}

std::string StartText(const Process& process) {
  return TimeText(Now() - process.uptime.count());
}

std::string Warnings(const LauncherStatus& launcher) {
  std::string text;
  if (!launcher.problem.empty()) {
    text += "the items file cannot be used: " + launcher.problem + "\n";
  }
  if (launcher.changed) {
    text +=
        "the items file has changed since the launcher's start; restart the "
        "launcher to apply it\n";
  }
  if (launcher.shared) {
    text += "another launcher runs the same items file: each item runs twice\n";
  }
  return text;
}

std::string LauncherTable(const LauncherStatus& launcher, bool coloured) {
  std::string text =
      "launcher " + Printable(launcher.Owner()) + ", process " +
      std::to_string(launcher.process.id) + ", since " +
      StartText(launcher.process) + "\n" +
      Printable(launcher.items_file.native()) + "\n" + Warnings(launcher) +
      Row("item", "state", {"process", "uptime", "cpu", "memory"});
  for (const ItemStatus& item : launcher.items) {
    text += Coloured(
        Row(Printable(item.name), item.state, WorkerNumbers(item.worker)),
        Colour::kRed, coloured && item.state != kRunning);
  }
  return text + WorkerTable("processes of unknown items", launcher.unassigned);
}

Json::Value JsonWorker(const Worker& worker) {
  constexpr std::chrono::duration<double> kSecond{1};
  const Process& process = worker.process;
  Json::Value object;
  object["process"] = process.id;
  object["chain_processes"] = Json::UInt64{worker.links};
  object["command"] = ShellQuoted(process.arguments);
  object["uptime_seconds"] = process.uptime / kSecond;
  object["cpu_seconds"] = process.processor_time / kSecond;
  object["memory_bytes"] = Json::UInt64{process.resident_bytes};
  return object;
}

Json::Value JsonWorkers(const std::vector<Worker>& workers) {
  Json::Value array(Json::arrayValue);
  for (const Worker& worker : workers) {
    array.append(JsonWorker(worker));
  }
  return array;
}

Json::Value JsonLauncher(const LauncherStatus& launcher) {
  Json::Value object;
  object["owner"] = ValidUtf8(launcher.Owner());
  object["process"] = launcher.process.id;
  object["since"] = StartText(launcher.process);
  object["items_file"] = ValidUtf8(launcher.items_file.native());
  object["problem"] = launcher.problem;
  object["changed"] = launcher.changed;
  object["shared"] = launcher.shared;
  object["unassigned"] = JsonWorkers(launcher.unassigned);
  object["items"] = Json::arrayValue;
  for (const ItemStatus& item : launcher.items) {
    Json::Value& entry = object["items"].append(
        item.worker ? JsonWorker(*item.worker) : Json::objectValue);
    entry["name"] = ValidUtf8(item.name);
    entry["state"] = item.state;
  }
  return object;
}

}  // namespace

std::string TableReport(const Status& status, bool coloured) {
  std::string text;
  for (const LauncherStatus& launcher : status.launchers) {
    text += (text.empty() ? "" : "\n") + LauncherTable(launcher, coloured);
  }
  if (status.launchers.empty()) {
    text = "this user runs no launcher\n";
  }
  return text +
         WorkerTable("\norphans, which no launcher stops", status.orphans);
}

std::string JsonReport(const Status& status) {
  Json::Value document;
  document["orphans"] = JsonWorkers(status.orphans);
  document["launchers"] = Json::arrayValue;
  for (const LauncherStatus& launcher : status.launchers) {
    document["launchers"].append(JsonLauncher(launcher));
  }
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["precisionType"] = "decimal";
  builder["precision"] = 3;
  return Json::writeString(builder, document) + "\n";
}
