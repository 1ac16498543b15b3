#include <gtest/gtest.h>
#include <json/json.h>

#include <sstream>
#include <string>

#include "tests/unit/tools/status/Processes.h"
#include "tools/status/Status.h"
#include "tools/text/Characters.h"

namespace {

using namespace std::chrono_literals;

class StatusReport : public testing::Test {
 protected:
  StatusReport() {
    LauncherStatus launcher;
    launcher.process = Program(4711, 1, {"launcher", "alpha", "/items.json"});
    launcher.items_file = "/items.json";
    status_.launchers.push_back(launcher);
  }

  LauncherStatus& Launcher() { return status_.launchers[0]; }

  ItemStatus& Add(const std::string& name, const std::string& state) {
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

TEST_F(StatusReport, ShowsASpanInTheUnitThatFits) {
  const auto shows = [&](std::chrono::milliseconds span,
                         const std::string& text) {
    status_.orphans = {Working(1, {"/a"})};
    status_.orphans[0].process.uptime = span;
    return Shows(" running                       1" +
                 std::string(8 - text.size(), ' ') + text + "     0ms");
  };
  EXPECT_TRUE(shows(0ms, "0ms"));
  EXPECT_TRUE(shows(59'900ms, "59s"));
  EXPECT_TRUE(shows(90min, "1h"));
  EXPECT_TRUE(shows(999 * 24h, "999d"));
}

TEST_F(StatusReport, ShowsMemoryInTheUnitThatFits) {
  const auto shows = [&](std::uint64_t bytes, const std::string& text) {
    status_.orphans = {Working(1, {"/a"})};
    status_.orphans[0].process.resident_bytes = bytes;
    return Shows("     0ms" + std::string(8 - text.size(), ' ') + text + "\n");
  };
  EXPECT_TRUE(shows(0, "0.0K"));
  EXPECT_TRUE(shows(1536, "1.5K"));
  EXPECT_TRUE(shows(1'048'575, "1024.0K"));
  EXPECT_TRUE(shows(1'048'576, "1.0M"));
  EXPECT_TRUE(shows(12'900'000, "12.3M"));
  EXPECT_TRUE(shows(std::uint64_t{3} << 30, "3.0G"));
  EXPECT_TRUE(shows(std::uint64_t{5} << 40, "5.0T"));
  EXPECT_TRUE(shows(std::uint64_t{5} << 50, "5120.0T"));
}

TEST(WorkerState, CountsTheProcessesOfAChain) {
  EXPECT_EQ(WorkerState(Working(1, {"/a"})), "running");
  EXPECT_EQ(WorkerState(Chain(1, 1)), "chain of 1 process");
  EXPECT_EQ(WorkerState(Chain(1, 12)), "chain of 12 processes");
}

TEST_F(StatusReport, ShowsAnItemOnALine) {
  Add("web", kRunning).worker = Busy(81);
  Add("tick", kBetweenStarts);
  EXPECT_TRUE(
      Shows("\nitem                     state                   process  uptime"
            "     cpu  memory\n"
            "web                      running                      81      1m"
            "    1.5s    2.0M\n"
            "tick                     between two starts            -       -"
            "       -       -\n"));
}

TEST_F(StatusReport, FitsEightyColumns) {
  Worker& worker = Add(std::string(100, 'x'), WorkerState(Chain(1, 99999)))
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
  EXPECT_TRUE(Shows("\nthe items file has changed since the launcher's start"));
  Launcher().changed = false;
  Launcher().shared = true;
  EXPECT_TRUE(Shows("\nanother launcher runs the same items file"));
  Launcher().problem = "cannot be parsed";
  EXPECT_TRUE(Shows("\nthe items file cannot be used: cannot be parsed\n"));
}

TEST_F(StatusReport, ShowsUnassignedProcessesAndOrphans) {
  Launcher().unassigned.push_back(Busy(5));
  EXPECT_TRUE(Shows(
      "\nprocesses of unknown items:\n/bin/web --port 80       running  "));
  EXPECT_FALSE(Shows("orphans"));
  status_.orphans = {Busy(6), Chain(7, 3)};
  EXPECT_TRUE(Shows("\n\norphans, which no launcher stops:\n/bin/web "));
  EXPECT_TRUE(Shows("\nlauncher o i             chain of 3 processes  "));
}

TEST_F(StatusReport, ShowsEachLauncher) {
  LauncherStatus second = Launcher();
  second.process.id = 4712;
  status_.launchers.push_back(second);
  EXPECT_TRUE(Shows("launcher alpha, process 4711, "));
  EXPECT_TRUE(Shows("\n\nlauncher alpha, process 4712, "));
}

TEST_F(StatusReport, SaysThatThereIsNoLauncher) {
  status_.launchers.clear();
  EXPECT_EQ(TableReport(status_, false), "this user runs no launcher\n");
}

TEST_F(StatusReport, DoesNotLetNamesActOnTheTerminal) {
  Add("a\nb", kNotRunning);
  Launcher().process.arguments[1] = "\x1b[2J";
  EXPECT_TRUE(Shows("\na\\x0ab  "));
  EXPECT_TRUE(Shows("launcher \\x1b[2J,"));
}

TEST_F(StatusReport, ColoursItemsThatDoNotRun) {
  Add("good", kRunning);
  const std::string good = TableReport(status_, true);
  EXPECT_EQ(good.find('\x1b'), std::string::npos);
  Add("bad", kNotRunning);
  const std::string bad = TableReport(status_, true);
  EXPECT_NE(bad.find("\x1b[1;31mbad "), std::string::npos);
  EXPECT_EQ(TableReport(status_, false).find('\x1b'), std::string::npos);
}

TEST_F(StatusReport, WritesJson) {
  Add("w\xff", kRunning).worker = Busy(81);
  Add("tick", kBetweenStarts);
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
