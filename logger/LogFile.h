// The file that a logger appends to.
//
// Every line is one `write` in append mode, which the system does whole and at
// the end of the file, whoever else writes. No lock is needed, so none is there
// for a forked copy to find taken.
//
// A full disk may take the first part of a line only. The file then goes on
// with someone else's line, so the part has to be ended at once, without any
// space: its last byte becomes a line feed.

#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "logger/Burst.h"
#include "logger/Limits.h"
#include "logger/Rotation.h"
#include "logger/SharedDescriptor.h"

// Safe from any thread and in a forked copy of a threaded process. Not to be
// destroyed while anything may log.
class LogFile {
 public:
  // The file `<directory>/<name>.log`, by an absolute path.
  LogFile(const std::string& directory, const std::string& name,
          const LogLimits& limits);

  // Opens the file, making it (0600) when it is missing. Returns 0, else the
  // errno. Goes before all else.
  int Open();

  // Appends `line`, which ends with a line feed and is begun at `now`, to the
  // file at the path: made anew when someone has removed or renamed it, rotated
  // when it is full. Never waits. False, with errno set, when the line could
  // not be written.
  bool Append(std::string_view line, Burst::Clock::time_point now);

 private:
  bool IsFit(const SharedDescriptor::Use& use, Burst::Clock::time_point now);
  bool AppendToFreshlyOpened(std::string_view line);
  bool Write(int descriptor, std::string_view line);
  bool EndFragment(std::string_view fragment) const;

  const std::string path_;
  const off_t limit_;
  const Rotation rotation_;
  SharedDescriptor shared_;
  Burst burst_;

  // Whether the file ends in the middle of a line, as far as is known.
  std::atomic<bool> torn_ = false;
};
