// What a log tells about items and launchers.
//
// Starts are logged at level DEBUG only. Where they are not, they are derived
// from the ends: the launcher pauses 50 ms after an end and starts the program
// again. A supervision thread serves one item, so a process's and thread's
// numbers tell whose end follows whose start.
//
// Memory grows with the items, not with the log.

#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/log/LogLine.h"

// Events in any minute: how many now, and how many at worst.
class MinuteRate {
 public:
  // `second` since 1970; one before the latest counts as the latest.
  void Add(std::int64_t second);
  // In the minute up to and with `second`.
  std::uint32_t At(std::int64_t second) const;
  std::uint32_t Worst() const { return worst_; }

 private:
  static constexpr std::int64_t kSeconds = 60;

  std::array<std::uint32_t, kSeconds> counts_{};
  std::int64_t latest_ = 0;
  std::uint32_t sum_ = 0;
  std::uint32_t worst_ = 0;
};

// One supervision thread, and the program that it has started last.
struct Supervisor {
  std::int64_t process = 0;
  std::int64_t thread = 0;
  std::optional<LogMicros> start;  // of the present run, where it is known
  bool logs_starts = false;
  LogMicros last = 0;
};

enum class ItemState {
  kRunning,    // was started last or, by rule, again
  kPausing,    // ended, and is about to be started again
  kLooping,    // ends all the time
  kSilent,     // ended, and not seen to start again
  kNoFork,     // could not be forked; its supervision is over
  kNoProgram,  // has an empty program path
  kChain,      // cannot be executed; grows a chain of processes
};

const char* Describe(ItemState state);

struct ItemHistory {
  std::string name;  // escaped
  std::uint64_t logged_starts = 0;
  std::uint64_t ends = 0;
  std::uint64_t copies = 0;  // starts by copies that could not be executed
  std::uint64_t failed_forks = 0;
  LogMicros last_time = 0;
  LogEventKind last_kind = LogEventKind::kOther;
  bool last_by_copy = false;
  bool last_logs_starts = false;  // whether its supervisor does
  LogMicros last_end = 0;
  int last_status = 0;
  std::optional<LogMicros> longest;
  MinuteRate rate;
  std::vector<Supervisor> supervisors;

  bool HasDerivedStarts() const { return logged_starts == 0; }
  std::uint64_t Starts() const;
  ItemState StateAt(LogMicros now) const;
  // Whether what has become of it since its last end is not logged.
  bool HasDerivedState() const;
};

// A program's life from a start to an end.
struct ProgramRun {
  std::size_t item = 0;
  std::optional<LogMicros> start;
  LogMicros end = 0;
  int status = 0;
};

// A process that supervised items.
struct LauncherSeen {
  std::int64_t process = 0;
  LogMicros first = 0;
  LogMicros last = 0;
};

class History {
 public:
  // `on_run` is called with each run as it ends.
  explicit History(std::function<void(const ProgramRun&)> on_run = {})
      : on_run_(std::move(on_run)) {}

  void Add(const LogEvent& event);
  void AddUnreadable() { ++unreadable_; }

  // In the order of their first line. Items do not move.
  const std::deque<ItemHistory>& Items() const { return items_; }
  // The latest ones that are kept, the latest last.
  std::vector<LauncherSeen> Launchers() const;
  std::uint64_t LauncherCount() const { return launcher_count_; }

  std::uint64_t Lines() const { return lines_; }
  std::uint64_t LostLines() const { return lost_; }
  std::uint64_t UnreadableLines() const { return unreadable_; }
  std::uint64_t NamelessItems() const { return nameless_; }
  std::uint64_t FailedLaunches() const { return unparsable_; }
  LogMicros First() const { return first_; }
  LogMicros Last() const { return last_; }

 private:
  std::size_t Find(std::string_view name);
  Supervisor* FindSupervisor(ItemHistory* item, const LogEvent& event);
  void AddItemEvent(const LogEvent& event);
  void AddStart(ItemHistory* item, const LogEvent& event);
  void AddEnd(std::size_t index, const LogEvent& event);
  void SeeLauncher(const LogEvent& event);

  const std::function<void(const ProgramRun&)> on_run_;
  std::deque<ItemHistory> items_;
  std::map<std::string, std::size_t, std::less<>> indices_;
  std::map<std::int64_t, LauncherSeen> launchers_;
  std::uint64_t launcher_count_ = 0;
  std::uint64_t lines_ = 0;
  std::uint64_t lost_ = 0;
  std::uint64_t unreadable_ = 0;
  std::uint64_t nameless_ = 0;
  std::uint64_t unparsable_ = 0;
  LogMicros first_ = 0;
  LogMicros last_ = 0;
};
