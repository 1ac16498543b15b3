// The file that a logger appends to.
//
// Every line is one `write` in append mode, which the system carries out whole
// and at the end of the file, whoever else writes. That needs no lock, so a
// forked child can never find one held.
//
// Someone may rename or remove the file. A look at the path shows it, but costs
// more than the `write`, so there is only one now and then, when the time of a
// line says so. In between the logger asks for the size. That is enough to
// notice a full file, and one that someone else has rotated: it was full, too.
//
// A line must not follow a fragment directly, or neither could be read. A
// process that is killed while it writes leaves a fragment, so the end of the
// file is looked at before a line is written, and a fragment is ended first. A
// process may also be killed after that look, while others wait to write. So in
// a file with several writers the byte before the line is looked at afterwards,
// too; if it belongs to a fragment, it becomes a line feed. The same happens to
// the last byte of a line that a full disk has cut: there may be no space for
// one byte more.

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

// A logger looks at the path again when its last look is that old, or when the
// file has grown by that many bytes: the clock may stand still.
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

  // Must be called first. Opens the file, making it (0600) when it is missing.
  // Returns 0, also when the disk is full, or an errno value.
  int Open();

  // Appends `line` to the file at the path; rotates it when it is full. Makes
  // the file when someone has removed or renamed it; until the next look at the
  // path, lines still go to the old one. Never waits. Returns false, with errno
  // set, when the line could not be written.
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

  // The process's limit for the size of its files, when last asked for.
  std::atomic<off_t> process_limit_ = 0;

  // The line's time at the last look at the path, and the file's size then.
  std::atomic<LogTime> look_time_{LogTime{}};
  std::atomic<off_t> look_bytes_ = 0;

  // A file of this size ends with this logger's last line. 0 when it has not
  // written to the present file.
  std::atomic<off_t> own_end_ = 0;

  // Whether anyone else has ever written between two lines of this logger. The
  // look after a line is for those: it would cost a lone launcher a tenth.
  std::atomic<bool> others_write_ = false;
};
