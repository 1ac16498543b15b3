// The history of items and launchers that a log shows.
//
// The launcher logs starts at the levels VERBOSE and DEBUG only. Elsewhere they
// are derived from the ends: the launcher starts a program again
// `kRestartPause` after its end.
// A supervision thread serves one item, so the process and thread ids of a line
// show which end follows which start.
//
// Memory grows with the items, not with the log.

#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tools/log/LogLine.h"
#include "tools/log/Timeline.h"

// The time at which a history is read, and the processes that exist then.
struct Present {
  Micros now = 0;
  std::function<bool(std::int64_t process)> exists;
};

// Events in any minute: how many now, and how many at worst.
class MinuteRate {
 public:
  // `second` since 1970; one before the latest counts as the latest.
  void Add(std::int64_t second);
  // In the minute up to and with `second`.
  std::uint64_t At(std::int64_t second) const;
  std::uint64_t Worst() const { return worst_; }

 private:
  struct Second {
    std::int64_t second;
    std::uint64_t events;
  };

  std::vector<Second> seconds_;  // of the last minute, the latest last
  std::uint64_t worst_ = 0;
};

// One supervision thread, and the program that it started last.
struct Supervisor {
  std::int64_t process = 0;
  std::int64_t thread = 0;
  std::optional<Micros> start;  // of the present run, where it is known
  bool logs_starts = false;
  Micros last = 0;
};

enum class ItemState {
  kRunning,    // was started last or, by rule, again
  kPausing,    // ended, and is about to be started again
  kLooping,    // ends all the time
  kSilent,     // ended, and was not seen to start again
  kGone,       // ran last, but its launcher no longer exists
  kChain,      // cannot be executed; grows a chain of processes
  kNoFork,     // could not be forked; its supervision is over
  kNoProgram,  // has an empty program path
};

struct StateText {
  ItemState state;
  const char* name;
  const char* meaning;  // of a state that needs attention; otherwise null
};

// In the order of the enumeration.
inline constexpr std::array<StateText, 8> kStateTexts{{
    {ItemState::kRunning, "running", nullptr},
    {ItemState::kPausing, "pausing", nullptr},
    {ItemState::kLooping, "looping", "ends again and again"},
    {ItemState::kSilent, "silent", "ended, no restart seen"},
    {ItemState::kGone, "gone", "launcher no longer there"},
    {ItemState::kChain, "chain", "cannot be executed"},
    {ItemState::kNoFork, "no fork", "given up for good"},
    {ItemState::kNoProgram, "no path", "missing or empty \"program\""},
}};

inline const StateText& TextOf(ItemState state) {
  return kStateTexts[static_cast<std::size_t>(state)];
}

struct ItemHistory {
  // As the log shows it. Assumes that its launcher exists.
  ItemState StateAt(Micros now) const;
  // Whether the log does not show what followed the last end.
  bool HasDerivedState() const;
  // When the present run began, as far as it is known.
  std::optional<Micros> RunStart() const;
  std::uint64_t Starts() const { return logs_starts ? logged_starts : ends; }

  std::string name;  // escaped
  std::size_t index = 0;
  bool logs_starts = false;  // whether any of its launchers does
  std::uint64_t logged_starts = 0;
  std::uint64_t ends = 0;
  std::uint64_t chained_starts = 0;  // by forked children, links of a chain
  std::uint64_t failed_forks = 0;
  std::map<int, std::uint64_t> statuses;  // how many ends had each
  LogEvent last;
  LogEvent last_end;
  bool last_logs_starts = false;  // whether the supervisor of the last end does
  std::int64_t launcher = 0;      // the process that supervised it last
  std::optional<Micros> longest_ended;
  MinuteRate rate;
  std::vector<Supervisor> supervisors;
};

// An item at the present.
struct ItemNow {
  const ItemHistory& history;
  ItemState state;
  std::optional<Micros> uptime;   // of the present run, if its start is known
  std::optional<Micros> longest;  // run, the present one included
};

// A process that supervised items.
struct LauncherSeen {
  std::int64_t process = 0;
  Micros first = 0;
  Micros last = 0;
  bool logs_starts = false;
};

// The part of a log to report. Earlier events affect only the states.
struct Selection {
  std::optional<Micros> since;
  std::set<std::string> names;  // all when empty
};

// Figures of a log.
struct LogTotals {
  // Within the selection.
  std::uint64_t lines = 0;
  std::uint64_t lost = 0;
  int lost_error = 0;  // of the last line lost
  std::uint64_t cut = 0;
  std::uint64_t nameless = 0;
  std::uint64_t parse_failed = 0;
  Micros first = 0;
  Micros last = 0;
  // Of any time and item.
  bool has_lines = false;
  std::uint64_t unrecognised = 0;
  // Of any time, for the selected items.
  std::uint64_t launchers = 0;
};

class History {
 public:
  // Fills the timeline only if `has_timeline`.
  explicit History(Selection selection = {}, bool has_timeline = false);

  // Returns whether the event is within the selection.
  bool Add(const LogEvent& event);
  void AddUnrecognised() { ++totals_.unrecognised; }

  // The items with events within the selection, and those whose launcher exists
  // or was the last one, in the order of their first lines.
  std::vector<ItemNow> Items(const Present& present) const;
  // The selected names that no line contains.
  std::vector<std::string> UnknownNames() const;
  // The latest ones that are kept, the latest last.
  std::vector<LauncherSeen> Launchers() const;

  const LogTotals& Totals() const { return totals_; }

  // Empty unless `has_timeline`.
  const Timeline& Runs() const { return timeline_; }
  // Adds to it the runs that had not ended at the last line.
  void AddOpenRuns();

 private:
  void Count(const LogEvent& event);
  ItemHistory& Find(std::string_view name);
  Supervisor& FindSupervisor(ItemHistory& item, const LogEvent& event);
  void AddItemEvent(LogEvent event, bool counts);
  void AddStart(ItemHistory& item, const LogEvent& event, bool counts);
  void AddEnd(ItemHistory& item, const LogEvent& event, bool counts);
  void SeeLauncher(const LogEvent& event);

  const Selection selection_;
  const bool has_timeline_;
  Timeline timeline_;
  std::deque<ItemHistory> items_;
  std::map<std::string, std::size_t, std::less<>> indices_;
  std::map<std::int64_t, LauncherSeen> launchers_;
  LogTotals totals_;
};
