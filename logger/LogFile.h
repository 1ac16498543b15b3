// The file that a logger appends to.
//
// Every line is one `write` in append mode. The system puts it at the end of
// the file, and never mixes it with another line, even while others write. This
// needs no lock: a forked child could find a lock held forever.
//
// Someone may rename or remove the file, and another process may rotate it or
// leave a fragment of a line in it. A look, which checks the path and the end
// of the file, shows all of this, but costs more than the `write`. So the
// logger looks again only when its last look is too old, judged by the time of
// the line, or when it has written much since. Between looks it adds its own
// lines to the size that it has seen. The sum shows when the file is full and,
// at the next look, whether the file still ends with its own line.
//
// A process that is killed while it writes leaves a fragment. A line that
// follows a fragment directly is hard to read, so a look ends a fragment with a
// line feed. But another process may leave one after the look, for example
// while the line waits for that process's `write`. So while others write to the
// file, the logger also checks the byte before each line once the line is
// written. If that byte belongs to a fragment, the logger replaces it with a
// line feed. The check adds half to the time of a line, so a logger that has
// the file to itself skips it.
//
// When a full disk cuts a line, the logger replaces the last byte of the
// fragment with the line feed: the disk may not have space for another byte.

#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>

#include "logger/Descriptor.h"
#include "logger/LogLine.h"
#include "logger/Rotation.h"

// The logger library uses the defaults; tests may set others.
struct LogLimits {
  // A file this large is full; the next line goes to a new one.
  off_t file_bytes = off_t{10} * 1024 * 1024;

  // The number of full files that are kept.
  int old_files = 5;
};

// A logger looks at the path again when its last look is this old, or when it
// has written this many bytes since: the clock may have stopped.
constexpr std::chrono::microseconds kMaxLookAge{25};
constexpr off_t kMaxLookGrowth = off_t{16} * 1024;

// A logger that finds another process's line at the end of the file expects
// more of these for this long.
constexpr std::chrono::seconds kMaxOthersAge{1};

// Whether `error`, an errno value, means that the disk has no space left.
bool IsDiskFull(int error);

// Safe from any thread and in a forked child of a threaded process. Must not be
// destroyed while any thread may log.
class LogFile {
 public:
  // The log `name` in `directory`, an absolute path.
  LogFile(const std::string& directory, const std::string& name,
          const LogLimits& limits);

  // Must be called first. Opens the file, and makes it, with mode 0600, when it
  // is missing. Returns 0, even when the disk is full, or an errno value.
  int Open();

  // Appends `line` to the file at the path. Rotates a full file, and makes a
  // missing one; a full file that cannot be rotated takes the line. When
  // someone renames or removes the file, lines go to the old one until the next
  // look at the path. Never waits for another writer, except inside a system
  // call. Returns false, with errno set, when the line could not be written
  // whole.
  bool Append(const LogLine& line);

 private:
  bool HasLookedRecently(LogTime now) const;
  bool Look(const SharedDescriptor::Use& use, LogTime now);
  void ForgetLook();
  bool IsFull(off_t bytes, std::size_t line_bytes) const;
  bool AppendToFreshlyOpened(const LogLine& line);
  bool AppendToOpenFile(const LogLine& line);
  bool EndFragmentAtEnd(int descriptor, off_t bytes, LogTime now);
  bool Write(int descriptor, const LogLine& line);
  void EndOwnFragment(int descriptor, std::string_view fragment) const;
  void SeparateFromFragment(int descriptor, std::string_view line) const;
  void PutLineFeed(int descriptor, off_t offset) const;

  const std::string path_;
  const off_t limit_;
  const Rotation rotation_;
  SharedDescriptor shared_;

  // The process's limit for the size of a file, in bytes, as last read. A file
  // also counts as full when the next line would make it larger than this
  // limit. A `write` that fails with EFBIG shows that the limit has changed.
  std::atomic<off_t> process_limit_ = 0;

  // The last look: the time of the line that it was made for, and the file's
  // size.
  std::atomic<LogTime> look_time_{LogTime{}};
  std::atomic<off_t> look_bytes_ = 0;

  static constexpr off_t kUnknown = -1;

  // The file's size at the last look plus the bytes that the logger has written
  // since, or kUnknown. If the next look finds this size, the file ends with
  // the logger's own line.
  std::atomic<off_t> bytes_ = 0;

  // When a look last found another process's line at the end of the file.
  std::atomic<LogTime> others_time_{LogTime{}};
};
