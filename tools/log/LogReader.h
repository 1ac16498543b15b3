// Reading a log: all its files, and what is written to it afterwards.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/log/LogFiles.h"
#include "tools/log/LogLine.h"

// Which events are wanted; those of no item always pass the names.
struct EventFilter {
  std::optional<LogMicros> since;
  std::set<std::string> names;  // all when empty

  bool Passes(const LogEvent& event) const;
};

class LogReader {
 public:
  using EventSink = std::function<void(const LogEvent&)>;

  // Gives `on_event` the events that pass `filter`, and calls `on_unreadable`
  // for each line that is no log's.
  LogReader(const std::string& path, EventFilter filter, EventSink on_event,
            std::function<void()> on_unreadable);
  ~LogReader();
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  // Opens all of the log's files. Returns 0, else the errno for one that cannot
  // be opened, or ENOENT when there is none.
  int Open();

  // Those that are open, the oldest first, and the bytes that they hold.
  std::vector<std::string> Files() const;
  std::uint64_t TotalBytes() const { return total_bytes_; }

  // Reads them to their present ends. `progress` is called now and then with
  // the bytes read so far.
  void ReadAll(const std::function<void(std::uint64_t)>& progress);

  // Reads what has been written since, also to a file that has taken the place
  // of the last one. `Open` may have failed with ENOENT before.
  void ReadNew();

 private:
  struct File {
    std::string path;
    int descriptor;
  };

  int OpenFile(const std::string& path);
  bool IsOpenAlready(int descriptor) const;
  void Take(std::string_view line);

  const std::string path_;
  const EventFilter filter_;
  const EventSink on_event_;
  const std::function<void()> on_unreadable_;
  LogLineParser parser_;
  LineReader lines_;
  std::vector<File> files_;
  std::uint64_t total_bytes_ = 0;
};
