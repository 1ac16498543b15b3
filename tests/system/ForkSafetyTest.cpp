// Forking while other threads hold locks, and the list of the calls that a
// forked child makes before execv.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <thread>
#include <vector>

#include "environment/Logging.h"
#include "launcher/ChildProc.h"
#include "tests/support/Poll.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/Sandbox.h"
#include "tests/support/Soak.h"
#include "tests/support/TempDir.h"

namespace {

using namespace std::chrono_literals;

// Logs, parses and allocates until it is destroyed.
class Noise {
 public:
  Noise() {
    for (int i = 0; i < 4; ++i) {
      threads_.emplace_back([this] { Make(); });
    }
  }
  ~Noise() {
    ended_ = true;
    for (std::thread& thread : threads_) {
      thread.join();
    }
  }

 private:
  void Make() const {
    while (!ended_) {
      __LOG__A(logger, LOGLEVEL_ERROR, "noise");
      JsonObject item(R"({"name": "noise", "args": {"0": "a", "1": [1, 2]}})");
      for (std::size_t size = 16; size < 1 << 20; size *= 2) {
        const std::vector<char> block(size);
      }
      std::this_thread::sleep_for(1ms);
    }
  }

  std::atomic<bool> ended_ = false;
  std::vector<std::thread> threads_;
};

using Lifetimes = std::vector<std::chrono::nanoseconds>;

// The time from each start that is logged in `file` to its child's end, by
// item.
std::map<std::string, Lifetimes> LifetimesByItem(const std::string& file) {
  std::map<std::string, Lifetimes> lifetimes;
  std::map<std::string, std::chrono::nanoseconds> starts;
  for (const LogRecord& record : RecordingLog::Read(file)) {
    if (const auto name = StartIn(record)) {
      starts[*name] = record.time;
    } else if (const auto end = EndIn(record)) {
      // The stop may have killed the last child.
      EXPECT_TRUE(end->status == 0 || end->status == SIGKILL) << record.message;
      lifetimes[end->name].push_back(record.time - starts[end->name]);
    }
  }
  return lifetimes;
}

TEST(ForkSafety, NoForkHangsWhileOthersLogParseAndAllocate) {
  REQUIRE_SANDBOX();
  constexpr std::size_t kItems = 20;
  const std::size_t forks = SoakOr<std::size_t>(10000, 500);
  const TempDir directory;
  const std::string file = directory.Path() / "log";
  RecordingLog log(file);
  logger = &log;
  {
    const Noise noise;
    std::vector<std::unique_ptr<ChildProc>> children;
    for (std::size_t i = 0; i < kItems; ++i) {
      const std::string item = R"({"name": "item)" + std::to_string(i) +
                               R"(", "program": "/bin/true", "argc": 3,
                                   "args": {"0": "a", "2": "c"}})";
      children.push_back(
          std::make_unique<ChildProc>("owner", JsonObject(item.c_str())));
    }
    // Every item restarts repeatedly: a forked child that hung would stop its
    // item forever.
    for (std::size_t least = 0; least < forks / kItems;) {
      const std::size_t before = least;
      ASSERT_TRUE(Eventually([&] {
        std::this_thread::sleep_for(200ms);
        const auto lifetimes = LifetimesByItem(file);
        least = lifetimes.size() < kItems ? 0 : forks;
        for (const auto& [name, times] : lifetimes) {
          least = std::min(least, times.size());
        }
        return least > before;
      })) << "an item hangs after "
          << before << " forks";
    }
  }
  logger = nullptr;
  Lifetimes all;
  for (const auto& [name, times] : LifetimesByItem(file)) {
    all.insert(all.end(), times.begin(), times.end());
  }
  RecordProperty("forks", static_cast<int>(all.size()));
  RecordProperty("longest_ms", static_cast<int>(std::ranges::max(all) / 1ms));
}

// Drops "(...)" and "[abi:...]".
std::string PlainName(const std::string& symbol) {
  return symbol.substr(0, symbol.find_first_of("(["));
}

// The functions that `function` (a plain name) of the forked side's objects
// calls, by their relocations.
std::set<std::string> CalleesOf(const std::string& function) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> listing(
      popen("objdump -drC " FORKED_SIDE_OBJECTS, "r"), pclose);
  const std::regex call("R_[A-Z0-9_]+(PLT32|CALL26|JUMP26)\\s+(.+?)[-+]0x");
  std::set<std::string> callees;
  std::array<char, 4096> buffer;
  bool inside = false;
  while (std::fgets(buffer.data(), buffer.size(), listing.get()) != nullptr) {
    const std::string line = buffer.data();
    if (const auto name = line.find(" <"); line.find(">:\n") != line.npos) {
      inside = PlainName(line.substr(name + 2)) == function;
    }
    std::smatch match;
    if (inside && std::regex_search(line, match, call)) {
      callees.insert(PlainName(match[2]));
    }
  }
  // Every function that an exception may pass through calls this.
  callees.erase("_Unwind_Resume");
  // A hardened build aborts through these.
  callees.erase("__stack_chk_fail");
  callees.erase("std::__glibcxx_assert_fail");
  return callees;
}

TEST(ForkedSide, MakesOnlyTheListedCalls) {
  EXPECT_EQ(CalleesOf("ChildProc::Execute"),
            (std::set<std::string>{"ItemArgument", "ItemVectorLength", "execv",
                                   "free", "operator delete", "strdup"}));
}

TEST(ForkedSide, ReadsTheItemFromMemoryAlone) {
  for (const char* const function : {"ItemVectorLength", "ItemArgument"}) {
    const std::set<std::string> callees = CalleesOf(function);
    EXPECT_FALSE(callees.empty()) << function;
    for (const std::string& callee : callees) {
      EXPECT_TRUE(std::regex_match(
          callee,
          std::regex(
              "JsonObject::.*|Json::Value::~Value|"
              "std::(__cxx11|__1)::basic_string.*|"
              "std::(__1|__cxx11)::to_string|std::__throw_.*|operator new|"
              "operator delete|memset|memcpy|memmove")))
          << function << " calls " << callee;
    }
  }
}

}  // namespace
