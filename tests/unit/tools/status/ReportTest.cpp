#include <gtest/gtest.h>
#include <json/json.h>

#include <sstream>
#include <string>

#include "tests/unit/tools/status/Processes.h"
#include "tools/status/Report.h"
#include "tools/text/Characters.h"

namespace {

using namespace std::chrono_literals;

class StatusReport : public testing::Test {
 protected:
  StatusReport() {
    LauncherStatus launcher;
    launcher.process = Program(4711, 1, {"launcher", "alpha", "/items.json"});
    launcher.owner = "alpha";
    launcher.items_file = "/items.json";
    status_.launchers.push_back(launcher);
  }

  LauncherStatus& Launcher() { return status_.launchers[0]; }

  ItemStatus& Add(const std::string& name, ItemState state) {
    ItemStatus item;
    item.name = name;
    item.state = state;
    Launcher().items.push_back(item);
    return Launcher().items.back();
  }

  static Worker Busy(pid_t id) {
    Worker worker = Working(id, {"/bin/web", "--port", "80"});
    worker.process.uptime = 65s;
    worker.process.processor_time = 1500ms;
    worker.process.resident_bytes = 2'097'152;
    return worker;
  }

  bool Shows(const std::string& part) const {
    return TableReport(status_, false).find(part) != std::string::npos;
  }

  Json::Value Document() const {
    std::istringstream text(JsonReport(status_));
    Json::Value document;
    text >> document;
    return document;
  }

  Status status_;
};

TEST(SpanText, ShowsTwoUnits) {
  EXPECT_EQ(SpanText(0ms), "0.0s");
  EXPECT_EQ(SpanText(59'999ms), "59.9s");
  EXPECT_EQ(SpanText(60s), "1m0s");
  EXPECT_EQ(SpanText(59min + 59s), "59m59s");
  EXPECT_EQ(SpanText(60min), "1h0m");
  EXPECT_EQ(SpanText(23h + 59min), "23h59m");
  EXPECT_EQ(SpanText(24h), "1d0h");
  EXPECT_EQ(SpanText(99 * 24h + 23h), "99d23h");
  EXPECT_EQ(SpanText(100 * 24h + 5h), "100d");
}

TEST(MemoryText, TakesTheUnitThatFits) {
  EXPECT_EQ(MemoryText(0), "0.0K");
  EXPECT_EQ(MemoryText(1536), "1.5K");
  EXPECT_EQ(MemoryText(1023 * 1024), "1.0M");
  EXPECT_EQ(MemoryText(12'900'000), "12.3M");
  EXPECT_EQ(MemoryText(1'023'948), "999.9K");
  EXPECT_EQ(MemoryText(UINT64_MAX), "16.0E");
}

TEST_F(StatusReport, NamesEachState) {
  const auto text = [](ItemState state) {
    ItemStatus item;
    item.state = state;
    item.worker = Chain(1, 12);
    return StateText(item);
  };
  EXPECT_EQ(text(ItemState::kRunning), "running");
  EXPECT_EQ(text(ItemState::kBetweenStarts), "between two starts");
  EXPECT_EQ(text(ItemState::kChain), "chain of 12 processes");
  EXPECT_EQ(text(ItemState::kNotRunning), "not running");
  EXPECT_EQ(text(ItemState::kGivenUp), "given up");
}

TEST_F(StatusReport, ShowsAnItemOnALine) {
  Add("web", ItemState::kRunning).worker = Busy(81);
  Add("tick", ItemState::kBetweenStarts);
  EXPECT_TRUE(Shows(
      "\nitem                       state                    process uptime"
      "    cpu memory\n"
      "web                        running                       81   1m5s   "
      "1.5s   2.0M\n"
      "tick                       between two starts             -      -   "
      "   -      -\n"));
}

TEST_F(StatusReport, KeepsToEightyColumns) {
  Worker& worker = Add(std::string(100, 'x'), ItemState::kChain)
                       .worker.emplace(Busy(4194304));
  worker.links = 99999;
  worker.process.uptime = 99 * 24h + 23h;
  worker.process.resident_bytes = 1'048'000'000;
  Launcher().unassigned.push_back(Busy(1));
  status_.orphans.push_back(worker);
  std::istringstream table(TableReport(status_, false));
  for (std::string line; std::getline(table, line);) {
    EXPECT_LE(DisplayWidth(line), 80U) << line;
  }
}

TEST_F(StatusReport, ShowsTheLauncherAndItsWarnings) {
  EXPECT_TRUE(TableReport(status_, false)
                  .starts_with("launcher alpha, process 4711, since 2"));
  EXPECT_TRUE(Shows("Z\n/items.json\nitem "));
  Launcher().changed = true;
  EXPECT_TRUE(Shows("\nthe items file has changed since the start"));
  Launcher().changed = false;
  Launcher().shared = true;
  EXPECT_TRUE(Shows("\nanother launcher runs the same items file"));
  Launcher().problem = "cannot be parsed";
  EXPECT_TRUE(Shows("\nthe items file cannot be used: cannot be parsed\n"));
}

TEST_F(StatusReport, ShowsUnassignedProcessesAndOrphans) {
  Launcher().unassigned.push_back(Busy(5));
  EXPECT_TRUE(Shows("\n/bin/web --port 80         of an item not known  "));
  EXPECT_FALSE(Shows("orphans"));
  status_.orphans = {Busy(6), Chain(7, 3)};
  EXPECT_TRUE(Shows("orphans: no launcher stops them or starts them again\n"));
  EXPECT_TRUE(Shows("\n/bin/web --port 80         running  "));
  EXPECT_TRUE(Shows("\nlauncher o i               chain of 3 processes  "));
}

TEST_F(StatusReport, SaysThatThereIsNoLauncher) {
  status_.launchers.clear();
  EXPECT_EQ(TableReport(status_, false), "no launcher of this user runs\n");
}

TEST_F(StatusReport, DoesNotLetNamesActOnTheTerminal) {
  Add("a\nb", ItemState::kNotRunning);
  Launcher().owner = "\x1b[2J";
  EXPECT_TRUE(Shows("\na\\x0ab  "));
  EXPECT_TRUE(Shows("launcher \\x1b[2J,"));
}

TEST_F(StatusReport, ColoursWhatDoesNotRun) {
  Add("good", ItemState::kRunning);
  const std::string good = TableReport(status_, true);
  EXPECT_EQ(good.find("\x1b[1;31m"), std::string::npos);
  EXPECT_EQ(good.find("\x1b[1;33m"), std::string::npos);
  EXPECT_NE(good.find("\x1b[1;1mlauncher alpha"), std::string::npos);
  Add("bad", ItemState::kNotRunning);
  Launcher().changed = true;
  const std::string bad = TableReport(status_, true);
  EXPECT_NE(bad.find("\x1b[1;31mbad "), std::string::npos);
  EXPECT_NE(bad.find("\x1b[1;33mthe items file has"), std::string::npos);
  EXPECT_EQ(TableReport(status_, false).find('\x1b'), std::string::npos);
}

TEST_F(StatusReport, WritesJson) {
  Add("w\xff", ItemState::kRunning).worker = Busy(81);
  Add("tick", ItemState::kBetweenStarts);
  Launcher().unassigned.push_back(Busy(5));
  Launcher().changed = true;
  status_.orphans.push_back(Chain(7, 3));
  const Json::Value document = Document();
  const Json::Value& launcher = document["launchers"][0];
  EXPECT_EQ(launcher["owner"], "alpha");
  EXPECT_EQ(launcher["process"], 4711);
  EXPECT_EQ(launcher["items_file"], "/items.json");
  EXPECT_EQ(launcher["problem"], "");
  EXPECT_EQ(launcher["changed"], true);
  EXPECT_EQ(launcher["shared"], false);
  EXPECT_EQ(launcher["since"].asString().size(), 20U);
  const Json::Value& web = launcher["items"][0];
  EXPECT_EQ(web["name"], "w\xEF\xBF\xBD");
  EXPECT_EQ(web["state"], "running");
  EXPECT_EQ(web["process"], 81);
  EXPECT_EQ(web["command"], "/bin/web --port 80");
  EXPECT_EQ(web["uptime_seconds"], 65.0);
  EXPECT_EQ(web["cpu_seconds"], 1.5);
  EXPECT_EQ(web["memory_bytes"].asInt(), 2'097'152);
  EXPECT_EQ(web["chain_processes"].asInt(), 0);
  EXPECT_FALSE(launcher["items"][1].isMember("process"));
  EXPECT_EQ(launcher["unassigned"][0]["process"], 5);
  EXPECT_EQ(document["orphans"][0]["chain_processes"].asInt(), 3);
}

TEST_F(StatusReport, WritesEmptyArrays) {
  status_.launchers.clear();
  EXPECT_TRUE(Document()["launchers"].isArray());
  EXPECT_TRUE(Document()["orphans"].isArray());
}

}  // namespace
