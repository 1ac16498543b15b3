// The launcher's `main` and its steps.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "launcher/Forks.h"
#include "launcher/Items.h"
#include "launcher/Messages.h"
#include "launcher/StopThread.h"
#include "tests/support/Allocations.h"
#include "tests/support/ChildProcFields.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SystemCalls.h"
#include "tests/support/SystemLog.h"
#include "tests/unit/launcher/MainFixture.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

int launcher_main(int argc, char** argv);

#ifdef __linux__
#include "tests/support/InterruptedPipe.h"
#endif

namespace {

using ReadDataTest = LoggedTest;

TEST_F(ReadDataTest, ReadsFilesOfAnySizeWhole) {
  for (const std::size_t size :
       {1U, 2U, 127U, 128U, 129U, 255U, 256U, 257U, 1000000U}) {
    std::string content;
    for (std::size_t i = 0; i < size; ++i) {
      content += static_cast<char>(1 + i % 255);
    }
    std::string data;
    EXPECT_TRUE(ReadData(directory_.Write("items", content), data));
    EXPECT_EQ(data, content) << size;
  }
  EXPECT_TRUE(Logged().empty());
}

TEST_F(ReadDataTest, ReplacesTheOldText) {
  std::string data = "something longer than the file";
  EXPECT_TRUE(ReadData(directory_.Write("items", "new"), data));
  EXPECT_EQ(data, "new");
}

TEST_F(ReadDataTest, EndsTheTextAtTheFirstNul) {
  std::string data;
  const std::string_view content("before\0after\0", 13);
  EXPECT_TRUE(ReadData(directory_.Write("items", content), data));
  EXPECT_EQ(data, "before");
}

TEST_F(ReadDataTest, AFileThatBeginsWithNulIsAnEmptyText) {
  std::string data = "old";
  const std::string_view content("\0{}", 3);
  EXPECT_TRUE(ReadData(directory_.Write("items", content), data));
  EXPECT_EQ(data, "");
}

TEST_F(ReadDataTest, FailsOnAMissingFileAndLeavesTheDataAlone) {
  std::string data = "old";
  EXPECT_FALSE(ReadData("/nonexistent/items", data));
  EXPECT_EQ(data, "old");
  EXPECT_EQ(Logged(),
            (Lines{{8, Message(kOpenFailedMessage, "/nonexistent/items")}}));
}

TEST_F(ReadDataTest, FailsOnAnEmptyFileAndLeavesTheDataAlone) {
  const std::string file = directory_.Write("items", "");
  std::string data = "old";
  EXPECT_FALSE(ReadData(file, data));
  EXPECT_EQ(data, "old");
  EXPECT_EQ(Logged(), (Lines{{8, Message(kFileEmptyMessage, file.c_str())}}));
}

TEST_F(ReadDataTest, ClosesTheFile) {
  const std::string file = directory_.Write("items", "{}");
  const std::string empty = directory_.Write("empty", "");
  const int before = dup(STDERR_FILENO);
  close(before);
  std::string data;
  ReadData(file, data);
  ReadData(empty, data);
  const int after = dup(STDERR_FILENO);
  close(after);
  EXPECT_EQ(after, before);
}

TEST_F(ReadDataTest, ReadsInStepsOf128Bytes) {
  static std::vector<std::size_t> steps;
  steps.clear();
  system_calls::OnFread([](std::size_t size, std::size_t count) {
    steps.push_back(size * count);
  });
  std::string data;
  ReadData(directory_.Write("items", std::string(1000, 'x')), data);
  system_calls::Reset();
  EXPECT_EQ(steps, std::vector<std::size_t>(8, 128));
}

TEST_F(ReadDataTest, SpinsOnADirectory) {
  EXPECT_EQ(InForkedChild([this] {
              const rlimit one_second{1, RLIM_INFINITY};
              setrlimit(RLIMIT_CPU, &one_second);
              std::string data;
              ReadData(directory_.Path(), data);
              return 0;
            }),
            -SIGXCPU)
      << "it neither returns nor waits";
}

#ifdef __linux__

// A signal that interrupts a read makes an error of the stream.
TEST_F(ReadDataTest, ReadsOnAfterASignal) {
  const std::string pipe = directory_.Path() / "pipe";
  std::string data;
  ReadInterrupted(pipe, {"", "begin, ", "middle, ", "end"},
                  [&] { EXPECT_TRUE(ReadData(pipe, data)); });
  EXPECT_EQ(data, "begin, middle, end");
}

#endif

TEST(InitDaemon, ClosesTheStandardDescriptorsAndLeavesThemClosed) {
  EXPECT_EQ(InForkedChild([] {
              InitDaemon();
              for (const int descriptor : {0, 1, 2}) {
                if (fcntl(descriptor, F_GETFD) != -1 || errno != EBADF) {
                  return 1;
                }
              }
              return 0;
            }),
            0);
}

TEST(InitDaemon, OwnsNoDescriptorThatAChildWouldInherit) {
  EXPECT_EQ(InForkedChild([] {
              constexpr int kHighest = 1024;
              for (int i = 3; i < kHighest; ++i) {
                close(i);
              }
              InitDaemon();
              for (int i = 0; i < kHighest; ++i) {
                const int flags = fcntl(i, F_GETFD);
                if (flags != -1 && (flags & FD_CLOEXEC) == 0) {
                  return i + 1;
                }
              }
              return 0;
            }),
            0);
}

TEST(InitDaemon, ClosesTheStandardDescriptorsInAscendingOrder) {
  EXPECT_EQ(InForkedChild([] {
              static std::vector<int> closed;
              system_calls::OnClose(
                  [](int descriptor) { closed.push_back(descriptor); });
              InitDaemon();
              closed.resize(3);
              return closed == std::vector<int>{0, 1, 2} ? 0 : 1;
            }),
            0);
}

TEST(InitDaemon, ClosesTheStandardDescriptorsBeforeItInstallsTheHandler) {
  EXPECT_EQ(InForkedChild([] {
              static int closed_before = 0;
              system_calls::OnClose([](int) {
                struct sigaction action;
                sigaction(SIGTERM, nullptr, &action);
                closed_before += action.sa_handler != sigterm_handler ? 1 : 0;
              });
              InitDaemon();
              return closed_before >= 3 ? 0 : 1;
            }),
            0);
}

#ifdef __GLIBC__

TEST(InitDaemon, GivesAllThreadsOneHeapBeforeThereAreThreads) {
  EXPECT_EQ(InForkedChild([] {
              static bool shared = false;
              system_calls::OnMallopt([](int option, int value) {
                shared = option == M_ARENA_MAX && value == 1;
              });
              system_calls::OnCreateThread([] { return shared ? 0 : EAGAIN; });
              InitDaemon();
              return shared && WakeStopThread() ? 0 : 1;
            }),
            0);
}

#endif

TEST(InitDaemon, InstallsTheHandlerForSigtermOnly) {
  EXPECT_EQ(InForkedChild([] {
              InitDaemon();
              struct sigaction action;
              sigaction(SIGTERM, nullptr, &action);
              const bool installed = action.sa_handler == sigterm_handler &&
                                     (action.sa_flags & SA_RESTART) != 0;
              for (const int other : {SIGINT, SIGHUP, SIGCHLD, SIGPIPE}) {
                sigaction(other, nullptr, &action);
                if (action.sa_handler == sigterm_handler) {
                  return other;
                }
              }
              return installed ? 0 : 1;
            }),
            0);
}

// `main`, without a logger library.

class MainTest : public LoggedTest {
 protected:
  void SetUp() override {
    REQUIRE_SANDBOX();
    LoggedTest::SetUp();
    system_log_ = std::make_unique<SystemLog>();
  }

  static int Main(std::string items_file) {
    std::string program = "launcher";
    std::string owner = "alpha";
    std::array<char*, 4> arguments{program.data(), owner.data(),
                                   items_file.data(), nullptr};
    return launcher_main(3, arguments.data());
  }

  // Runs `main`, which fails, and then stops the item that it has left running.
  // Returns 0, or the number of the expectation that is not met.
  static int MainLeavesOneItem(const std::string& items_file) {
    if (Main(items_file) != 0) return 1;
    if (g_child_map.size() != 1) return 2;
    if (!system_calls::Kills().empty()) return 3;
    g_child_map.clear();
    return 0;
  }

  std::string WriteItems(const std::string& items) const {
    return directory_.Write("items", items);
  }

  std::unique_ptr<SystemLog> system_log_;
};

TEST_F(MainTest, LogsThePathBeforeItReads) {
  EXPECT_EQ(InForkedChild([] { return Main("/nonexistent/items"); }), 0);
  EXPECT_EQ(Logged(),
            (Lines{{8, Message(kReadDataMessage, "/nonexistent/items")},
                   {8, Message(kOpenFailedMessage, "/nonexistent/items")},
                   {8, Message(kReadFailedMessage, "/nonexistent/items")}}));
}

TEST_F(MainTest, LogsThatAnEmptyFileCannotBeRead) {
  const std::string file = WriteItems("");
  EXPECT_EQ(InForkedChild([&] { return Main(file); }), 0);
  EXPECT_EQ(Logged(), (Lines{{8, Message(kReadDataMessage, file.c_str())},
                             {8, Message(kFileEmptyMessage, file.c_str())},
                             {8, Message(kReadFailedMessage, file.c_str())}}));
}

TEST_F(MainTest, WritesAnEventWithoutAnyArguments) {
  EXPECT_EQ(InForkedChild([] {
              std::array<char*, 1> arguments{nullptr};
              return launcher_main(0, arguments.data());
            }),
            0);
  EXPECT_TRUE(Logged().empty());
  const std::vector<std::string> events = system_log_->Lines();
  ASSERT_EQ(events.size(), 1U);
  EXPECT_TRUE(events[0].ends_with(kWrongParametersEvent)) << events[0];
}

// So the connection to the system log takes number 0.
TEST_F(MainTest, ClosesTheStandardDescriptorsBeforeItLooksAtItsArguments) {
  EXPECT_EQ(InForkedChild([] {
              std::array<char*, 1> arguments{nullptr};
              launcher_main(0, arguments.data());
              if (fcntl(STDIN_FILENO, F_GETFD) == -1) return 1;
              if (fcntl(STDOUT_FILENO, F_GETFD) != -1) return 2;
              return fcntl(STDERR_FILENO, F_GETFD) != -1 ? 3 : 0;
            }),
            0);
}

TEST_F(MainTest, GivesItsItemsTheOwner) {
  const std::string file = WriteItems(ItemsFile({Sleeper("a")}));
  EXPECT_EQ(InForkedChild([&] {
              std::thread([] {
                Eventually([] { return ThreadsInWait(getpid()) == 1; });
                Repeat([] { g_process_condition.notify_all(); });
              }).detach();
              Main(file);
              const std::string owner = FieldOf<kOwner>(*g_child_map.at("a"));
              g_child_map.clear();
              return owner == "alpha" ? 0 : 1;
            }),
            0);
}

TEST_F(MainTest, WaitsWithItsMutex) {
  const std::string file = WriteItems("{}");
  EXPECT_EQ(InForkedChild([&] {
              std::atomic<bool> held = false;
              std::atomic<bool> released = false;
              std::thread([&] {
                std::unique_lock lock(g_process_mutex);
                held = true;
                for (int i = 0; i < 100; ++i) {
                  g_process_condition.notify_all();
                  std::this_thread::sleep_for(std::chrono::milliseconds(2));
                }
                released = true;
                lock.unlock();
                Repeat([] { g_process_condition.notify_all(); });
              }).detach();
              Eventually([&] { return held.load(); });
              Main(file);
              return released ? 0 : 1;
            }),
            0);
}

// jsoncpp reports that neither as a faulty text nor as a wrong type.
TEST_F(MainTest, EndsWithZeroWhenTheItemsAreNestedTooDeeply) {
  const std::string file = WriteItems(std::string(1001, '['));
  EXPECT_EQ(InForkedChild([&] { return Main(file); }), 0);
  EXPECT_EQ(Logged().back(), std::pair(8, std::string(kParseFailedMessage)));
}

// The blanks make every buffer for the whole file larger than one for the name.
TEST_F(MainTest, EndsWithZeroWhenItHasNoMemoryForAName) {
  static constexpr std::size_t kNameBytes = 5000;
  const std::string file =
      WriteItems(R"({"0": {"name": ")" + std::string(kNameBytes, 'x') + "\"}}" +
                 std::string(2 * kNameBytes, ' '));
  EXPECT_EQ(InForkedChild([&] {
              g_on_allocation = [](std::size_t bytes) {
                if (bytes > kNameBytes && bytes < kNameBytes + 100) {
                  throw std::bad_alloc();
                }
              };
              return Main(file);
            }),
            0);
  EXPECT_EQ(Logged().back(), std::pair(8, std::string(kParseFailedMessage)));
}

TEST_F(MainTest, AbortsWhenItHasNoMemoryForTheFile) {
  static constexpr std::size_t kFileBytes = 100'000;
  const std::string file = WriteItems("{}" + std::string(kFileBytes, ' '));
  EXPECT_EQ(InForkedChild([&]() noexcept {
              g_on_allocation = [](std::size_t bytes) {
                if (bytes > kFileBytes / 2) {
                  throw std::bad_alloc();
                }
              };
              return Main(file);
            }),
            -SIGABRT);
}

// The items that still run are stopped by exit-time destruction.
TEST_F(MainTest, AnyWakeUpEndsItsWaitThoughItemsRun) {
  const std::string file = WriteItems(ItemsFile({Sleeper("a"), Sleeper("b")}));
  EXPECT_EQ(InForkedChild([&]() -> int {
              std::atomic<bool> woken = false;
              std::thread notifier([&] {
                Eventually([] { return ThreadsInWait(getpid()) == 2; });
                while (!woken) {
                  g_process_condition.notify_all();
                  std::this_thread::sleep_for(std::chrono::milliseconds(2));
                }
              });
              const int status = Main(file);
              woken = true;
              notifier.join();
              if (g_child_map.size() != 2) return 2;
              if (!system_calls::Kills().empty()) return 3;
              if (!IsExiting()) return 4;
              std::exit(status);
            }),
            1);
  int ends = 0;
  for (const LogRecord& record : RecordingLog::Read(log_file_)) {
    if (const auto end = EndIn(record)) {
      EXPECT_EQ(end->status, SIGKILL);
      ++ends;
    }
  }
  EXPECT_EQ(ends, 2);
}

#if defined(__GLIBC__) && !defined(__SANITIZE_THREAD__)

// By then the file's text and document are gone.
TEST_F(MainTest, GivesMemoryBackOnceTheItemsAreLoaded) {
  constexpr std::size_t kBytes = 10'000'000;
  const std::string file =
      WriteItems(R"({"ignored": ")" + std::string(kBytes, 'x') + "\"}");
  EXPECT_EQ(InForkedChild([&] {
              static std::size_t before =
                  mallinfo2().uordblks + mallinfo2().hblkhd;
              static int trims = 0;
              static bool early = false;
              system_calls::OnTrim([] {
                ++trims;
                early = mallinfo2().uordblks + mallinfo2().hblkhd >
                        before + kBytes / 2;
              });
              std::thread([] {
                Repeat([] { g_process_condition.notify_all(); });
              }).detach();
              if (Main(file) != 1) return 1;
              if (trims != 1) return 2;
              return early ? 3 : 0;
            }),
            0);
}

#endif

TEST_F(MainTest, EndsWhenTheSystemRefusesASupervisionThread) {
  const std::string file =
      WriteItems(R"({"0": {"name": "a", "program": "/bin/true"}})");
  EXPECT_EQ(InForkedChild([&] {
              // The first thread is the one for SIGTERM.
              system_calls::OnCreateThread(
                  [made = 0]() mutable { return made++ == 0 ? 0 : EAGAIN; });
              return Main(file);
            }),
            0);
  EXPECT_EQ(Logged().back(), std::pair(8, std::string(kParseFailedMessage)));
}

// Until exit-time destruction.
TEST_F(MainTest, LeavesTheItemsBeforeAFaultyOneRunning) {
  const std::string file =
      WriteItems(R"({"0": {"name": "a", "program": "/bin/true"}, "1": 5})");
  EXPECT_EQ(InForkedChild([&] { return MainLeavesOneItem(file); }), 0);
}

// The later one must have been constructed.
TEST_F(MainTest, LeavesAnItemRunningWhenALaterOneOfItsNameCannotBeStarted) {
  const std::string file = WriteItems(
      R"({"0": {"name": "twin", "program": "/bin/true"},
          "1": {"name": "twin", "program": "/bin/false"}})");
  EXPECT_EQ(InForkedChild([&] {
              // The third thread is the later twin's.
              system_calls::OnCreateThread(
                  [made = 0]() mutable { return ++made == 3 ? EAGAIN : 0; });
              return MainLeavesOneItem(file);
            }),
            0);
}

TEST_F(MainTest, StartsWithoutAThreadForSigterm) {
  const std::string file = WriteItems("{}");
  EXPECT_EQ(
      InForkedChild([&] {
        system_calls::OnCreateThread([] { return EAGAIN; });
        system_calls::OnTrim([] {
          system_calls::OnCreateThread({});
          std::thread([] { Repeat([] { kill(getpid(), SIGTERM); }); }).detach();
        });
        return Main(file);
      }),
      1);
}

// The earlier of the two is stopped while it is about to fork: its process
// group gets a signal, and no thread waits for it while holding the lock that
// it needs to fork. It has ended before the walk continues.
TEST_F(MainTest, ReplacesAnItemThatIsAboutToFork) {
  const std::string file = WriteItems(
      R"({"0": {"name": "twin", "program": "/bin/true"},
          "1": {"name": "twin", "argc": 1, "program": "/bin/sleep",
                "args": {"0": "1000"}},
          "2": {}})");
  EXPECT_EQ(
      InForkedChild([&] {
        static std::atomic<int> forks = 0;
        system_calls::OnFork([] {
          if (forks++ == 0) {
            Eventually([] { return !system_calls::Kills().empty(); });
          }
          return system_calls::RealFork();
        });
        const auto has_ended = [](const std::pair<int, std::string>& line) {
          return line.second.find(" is killed.") != std::string::npos;
        };
        std::thread([&] {
          Eventually([&] {
            return forks == 2 && std::ranges::any_of(Logged(), has_ended) &&
                   ThreadsInWait(getpid()) == 1;
          });
          Repeat([] { raise(SIGTERM); });
        }).detach();
        // The third thread is the later twin's.
        system_calls::OnCreateThread([made = 0]() mutable {
          if (++made == 3) {
            Eventually([] { return forks == 1; });
          }
          return 0;
        });
        if (Main(file) != 1) return 1;
        const auto kills = system_calls::Kills();
        if (kills.size() != 2 || kills[0] != std::pair(0, SIGKILL)) {
          return 2;
        }
        return kills[1].first > 0 && g_child_map.empty() ? 0 : 3;
      }),
      0);
  const auto first = [lines = Logged()](const std::string& part) {
    return std::ranges::find_if(lines, [&](const auto& line) {
      return line.second.find(part) != std::string::npos;
    });
  };
  EXPECT_LT(first("is killed"), first("has no name"));
}

TEST_F(MainTest, SigtermsWhileItLoadsRaceOverOrderOnly) {
  constexpr int kItems = 2000;
  std::string items = "{";
  for (int i = 0; i < kItems; ++i) {
    const std::string number = std::to_string(i);
    items += (i == 0 ? "\"" : ", \"") + number + R"(": {"name": "item)" +
             number + "\"}";
  }
  const std::string file = WriteItems(items + "}");
  EXPECT_EQ(InForkedChild([&] {
              // An item whose fork failed is stopped at once.
              static std::atomic<bool> loads = false;
              system_calls::OnFork([] {
                loads = true;
                return -1;
              });
              std::thread([] {
                Eventually([] { return loads.load(); });
                for (;;) {
                  raise(SIGTERM);
                  std::this_thread::yield();
                }
              }).detach();
              return Main(file);
            }),
            1);
}

// A child forked then would inherit a map in the middle of a change.
TEST_F(MainTest, NoItemForksWhileAnotherIsInserted) {
  static constexpr std::size_t kNameBytes = 5000;
  const std::string file =
      WriteItems(R"({"0": {"name": ")" + std::string(kNameBytes, 'x') + "\"}}");
  EXPECT_EQ(InForkedChild([&] {
              static std::atomic<bool> has_thread = false;
              static std::atomic<bool> inserts = false;
              static std::atomic<bool> has_forked = false;
              static const std::thread::id main_thread =
                  std::this_thread::get_id();
              system_calls::OnCreateThread([made = 0]() mutable {
                has_thread = ++made == 2;
                return 0;
              });
              system_calls::OnFork([] {
                Eventually([] { return inserts.load(); });
                const pid_t child = system_calls::RealFork();
                has_forked = true;
                return child;
              });
              // Once the item's thread exists, `main` makes one more copy of
              // the item's name: the key in the map.
              g_on_allocation = [](std::size_t bytes) {
                if (bytes > kNameBytes && has_thread &&
                    std::this_thread::get_id() == main_thread) {
                  inserts = true;
                  std::this_thread::sleep_for(2 * kRestartPause);
                  _exit(has_forked ? 1 : 0);
                }
              };
              Main(file);
              return 2;
            }),
            0);
}

}  // namespace
