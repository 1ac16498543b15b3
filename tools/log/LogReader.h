// Reads a log: all its files, then the lines written afterwards.

#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

// The existing files of a log, the oldest first. For "launcher.log" these are
// ..., "launcher.2.log", "launcher.1.log", those that a rotation has set aside
// ("launcher.<time>-<thread>.full"), and "launcher.log" itself.
std::vector<std::string> FindLogFiles(const std::string& path);

class LogReader {
 public:
  using LineSink = std::function<void(std::string_view line)>;

  // Passes each line to `on_line`, without its line feed. Memory is bounded: of
  // a line of more than 16 MiB, which no logger writes, `on_line` gets only the
  // end.
  LogReader(std::string path, LineSink on_line);
  ~LogReader();
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  // Opens all of the log's files; false if there is none. Throws
  // std::runtime_error, which names the file, for one that cannot be read.
  bool Open();

  // The open files, the oldest first.
  std::vector<std::string> Files() const;

  // Reads the open files to their present ends. A line without a line feed at
  // the end of the last one is still being written, and is kept for `ReadNew`.
  void ReadAll();

  // Reads the lines written since then, including those in a file that has
  // replaced the last one. `Open` may have found no log.
  void ReadNew();

 private:
  struct File {
    std::string path;
    int descriptor;
    struct stat status;  // when it was opened
  };

  bool OpenFile(const std::string& path);
  void ReadToEnd(const File& file);
  void GiveLines(std::string_view piece);
  void GiveLastLine();

  const std::string path_;
  const LineSink on_line_;
  std::vector<File> files_;
  std::string line_;  // the beginning of one that is not complete yet
};
