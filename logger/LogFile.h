// The file that a logger appends to.
//
// Every line is one `write` in append mode. The system puts it at the end of
// the file in one piece, even while others write. This needs no lock: a forked
// child could find a lock held forever.
//
// Someone may rename or remove the file. Only a look at the path shows that,
// and it costs more than the `write`. So the logger looks again only when its
// last look is too old, judged by the time of the line. In between it asks for
// the file's size. The size shows when the file is full, and also when another
// process has rotated it: only full files are rotated.
//
// A line that follows a fragment directly makes both unreadable. A process that
// is killed while it writes leaves a fragment. So a writer checks the end of
// the file before its line, unless its own last line is there, and ends a
// fragment with a line feed. After that check, however, the writer may have to
// wait for another process's `write`, and that process may be killed in it. So
// in a file with several writers, a writer also checks the byte before its line
// once the line is written. If that byte belongs to a fragment, the writer
// replaces it with a line feed. When a full disk cuts a line, the writer
// replaces the last byte of the fragment: the disk may not have space for
// another one.

#pragma once

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "logger/Descriptor.h"
#include "logger/LogLine.h"
#include "logger/Rotation.h"

// The logger library uses the defaults; the tests lower them.
struct LogLimits {
  // A file this large is full; the next line goes to a new one.
  off_t file_bytes = off_t{10} * 1024 * 1024;

  // The number of full files that are kept.
  int old_files = 5;
};

// A logger looks at the path again when its last look is this old, or when the
// file has grown by this many bytes since: the clock may have stopped.
constexpr std::chrono::microseconds kMaxLookAge{100};
constexpr off_t kMaxLookGrowth = off_t{16} * 1024;

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
  std::optional<off_t> Look(const SharedDescriptor::Use& use, LogTime now);
  bool IsFull(off_t bytes, std::size_t line_bytes) const;
  bool AppendToFreshlyOpened(std::string_view line);
  bool AppendToPresent(std::string_view line);
  bool Write(int descriptor, off_t bytes, std::string_view line);
  void EndFragment(int descriptor, std::string_view fragment) const;
  void SeparateFromFragment(int descriptor, off_t bytes,
                            std::string_view line) const;
  void PutLineFeed(int descriptor, off_t offset) const;

  const std::string path_;
  const off_t limit_;
  const Rotation rotation_;
  SharedDescriptor shared_;

  // The process's limit for the size of a file, in bytes, as last read. A file
  // that the line would take beyond it is full, too. A `write` that fails with
  // EFBIG shows that the limit has changed.
  std::atomic<off_t> process_limit_ = 0;

  // The last look at the path: the time of its line, and the file's size.
  std::atomic<LogTime> look_time_{LogTime{}};
  std::atomic<off_t> look_bytes_ = 0;

  // While the file has this size, it ends with this logger's last line. 0 when
  // the logger has not written to the open file yet.
  std::atomic<off_t> own_end_ = 0;

  // Whether others have ever written between two lines of this logger. Only
  // then does the logger check the byte before a line once the line is written,
  // because that would make a lone launcher's logging a tenth slower.
  std::atomic<bool> others_write_ = false;
};
