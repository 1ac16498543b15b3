// The cost of a log line: the logger beside the bare `write` of an equal line
// and beside spdlog's file loggers, which flush every line here as ours does.
//
// All write the same text to a file in a directory of their own. Lines per
// second are items_per_second; nanoseconds per line are the time.
//
// LibloggerWithPauses is the launcher's use: something else happens between two
// lines, so none follows another at once. Its counter is the median of a line's
// time in nanoseconds, since on a busy machine the pauses attract other work.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "logger/Logger.h"
#include "tests/support/TempDir.h"

namespace {

constexpr std::string_view kLine =
    "2026-11-21T06:20:31.123456Z ERROR 47110:47113 [LAUNCHER  ] "
    "Start to fork backup-agent\n";
constexpr char kName[] = "backup-agent";

constexpr int kLines = 200'000;

// The state that the threads of one run share.
std::unique_ptr<TempDir> g_dir;
int g_file = -1;
Logger* g_logger = nullptr;
std::shared_ptr<spdlog::logger> g_spdlog;

std::string Path() { return g_dir->Path() / "launcher.log"; }

void OpenFile(const benchmark::State&) {
  g_dir = std::make_unique<TempDir>();
  constexpr mode_t kMode = 0600;
  g_file =
      open(Path().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kMode);
}

void CloseFile(const benchmark::State&) {
  close(g_file);
  g_dir.reset();
}

void BareWrite(benchmark::State& state) {
  for (auto _ : state) {
    if (write(g_file, kLine.data(), kLine.size()) < 0) {
      state.SkipWithError("write failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

using Clock = std::chrono::system_clock;

// A look at the clock, printf's formatting and a `write`, which every logger of
// such lines needs. Calls `look` before the `write`.
template <class Look>
void WriteFormatted(benchmark::State& state, Look look) {
  std::array<char, 256> line;
  const std::size_t prefix = kLine.find('[');
  kLine.copy(line.data(), prefix);
  for (auto _ : state) {
    look(Clock::now());
    const int length = std::snprintf(line.data() + prefix, line.size() - prefix,
                                     "[LAUNCHER  ] Start to fork %s\n", kName);
    if (write(g_file, line.data(), prefix + static_cast<std::size_t>(length)) <
        0) {
      state.SkipWithError("write failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

void FormattedWrite(benchmark::State& state) {
  WriteFormatted(state, [](auto now) { benchmark::DoNotOptimize(now); });
}

void LookAtPath(const std::string& path) {
  struct stat status;
  benchmark::DoNotOptimize(stat(path.c_str(), &status));
}

// The two ways in which a logger can notice that its file was renamed: a look
// at the path with every line, or, as the logger does, now and then.
void FormattedWriteAndPath(benchmark::State& state) {
  const std::string path = Path();
  WriteFormatted(state, [&](auto) { LookAtPath(path); });
}

void FormattedWriteAndPathNowAndThen(benchmark::State& state) {
  const std::string path = Path();
  Clock::time_point last;
  WriteFormatted(state, [&](auto now) {
    if (now - last >= kMaxLookAge) {
      LookAtPath(path);
      last = now;
    }
  });
}

void OpenLogger(const benchmark::State&) {
  g_dir = std::make_unique<TempDir>();
  g_logger = new Logger(g_dir->Path(), "launcher", LOGLEVEL_DEBUG);
  if (g_logger->Open() != 0) {
    std::abort();
  }
}

void CloseLogger(const benchmark::State&) {
  delete g_logger;
  g_dir.reset();
}

void Log(benchmark::State& state, LOGLEVEL level) {
  ILog* const log = g_logger;
  for (auto _ : state) {
    log->Log(level, "[LAUNCHER  ] Start to fork %s", kName);
  }
  state.SetItemsProcessed(state.iterations());
}

void Liblogger(benchmark::State& state) { Log(state, LOGLEVEL_ERROR); }

void LibloggerWithPauses(benchmark::State& state) {
  constexpr std::chrono::microseconds kPause{2};
  using std::chrono::steady_clock;
  ILog* const log = g_logger;
  std::vector<double> times;
  times.reserve(static_cast<std::size_t>(state.max_iterations));
  for (auto _ : state) {
    const auto pause_end = steady_clock::now() + kPause;
    while (steady_clock::now() < pause_end) {
    }
    const auto begin = steady_clock::now();
    log->Log(LOGLEVEL_ERROR, "[LAUNCHER  ] Start to fork %s", kName);
    times.push_back(
        std::chrono::duration<double, std::nano>(steady_clock::now() - begin)
            .count());
  }
  const auto median =
      times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), median, times.end());
  state.counters["median_ns"] = *median;
}

void LibloggerBelowThreshold(benchmark::State& state) {
  Log(state, LOGLEVEL_VERBOSE);
}

void Start(std::shared_ptr<spdlog::logger> logger) {
  g_spdlog = std::move(logger);
  g_spdlog->set_pattern("%Y-%m-%dT%H:%M:%S.%fZ %l %P:%t %v",
                        spdlog::pattern_time_type::utc);
  g_spdlog->flush_on(spdlog::level::trace);
}

void OpenSpdlogBasic(const benchmark::State&) {
  g_dir = std::make_unique<TempDir>();
  Start(std::make_shared<spdlog::logger>(
      "basic", std::make_shared<spdlog::sinks::basic_file_sink_mt>(Path())));
}

void OpenSpdlogRotating(const benchmark::State&) {
  constexpr LogLimits kLimits;
  g_dir = std::make_unique<TempDir>();
  Start(std::make_shared<spdlog::logger>(
      "rotating", std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
                      Path(), static_cast<std::size_t>(kLimits.file_bytes),
                      static_cast<std::size_t>(kLimits.old_files))));
}

void CloseSpdlog(const benchmark::State&) {
  g_spdlog.reset();
  g_dir.reset();
}

void Spdlog(benchmark::State& state) {
  for (auto _ : state) {
    g_spdlog->error("[LAUNCHER  ] Start to fork {}", kName);
  }
  state.SetItemsProcessed(state.iterations());
}

constexpr int kManyThreads = 8;

// Runs with one thread and with many; the number of lines is the same.
void RunBoth(const char* name, void (*run)(benchmark::State&),
             void (*setup)(const benchmark::State&),
             void (*teardown)(const benchmark::State&)) {
  for (const int threads : {1, kManyThreads}) {
    benchmark::RegisterBenchmark(name, run)
        ->Setup(setup)
        ->Teardown(teardown)
        ->UseRealTime()
        ->Iterations(kLines / threads)
        ->Threads(threads);
  }
}

BENCHMARK(LibloggerBelowThreshold)->Setup(OpenLogger)->Teardown(CloseLogger);

}  // namespace

int main(int argc, char** argv) {
  RunBoth("BareWrite", BareWrite, OpenFile, CloseFile);
  RunBoth("FormattedWrite", FormattedWrite, OpenFile, CloseFile);
  RunBoth("FormattedWriteAndPath", FormattedWriteAndPath, OpenFile, CloseFile);
  RunBoth("FormattedWriteAndPathNowAndThen", FormattedWriteAndPathNowAndThen,
          OpenFile, CloseFile);
  RunBoth("Liblogger", Liblogger, OpenLogger, CloseLogger);
  benchmark::RegisterBenchmark("LibloggerWithPauses", LibloggerWithPauses)
      ->Setup(OpenLogger)
      ->Teardown(CloseLogger)
      ->Iterations(kLines / 4);
  RunBoth("SpdlogBasic", Spdlog, OpenSpdlogBasic, CloseSpdlog);
  RunBoth("SpdlogRotating", Spdlog, OpenSpdlogRotating, CloseSpdlog);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
