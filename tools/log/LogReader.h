// Reads a log: all its files, and lines that are written later.

#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

// The files that a log consists of, the oldest first: for "launcher.log" that
// is ..., "launcher.2.log", "launcher.1.log", those that a rotation has set
// aside ("launcher.<time>-<thread>.full"), and "launcher.log" itself. Only
// existing ones.
std::vector<std::string> FindLogFiles(const std::string& path);

class LogReader {
 public:
  using LineSink = std::function<void(std::string_view line)>;

  // Gives `on_line` each line, without its line feed. Memory is bounded: of a
  // line of more than 16 MiB, which no logger writes, only the end is given.
  LogReader(std::string path, LineSink on_line);
  ~LogReader();
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  // Opens all of the log's files; false when there is none. Throws
  // std::runtime_error, which names the file, for one that cannot be read.
  bool Open();

  // The open files, the oldest first.
  std::vector<std::string> Files() const;

  // Reads the open files to their present ends. A line without a line feed at
  // the end of the last one is still being written, and is kept for `ReadNew`.
  void ReadAll();

  // Reads lines written since, also in a file that took the place of the
  // last one. `Open` may have found no log.
  void ReadNew();

 private:
  struct File {
    std::string path;
    int descriptor;
    struct stat status;  // when it was opened
  };

  bool OpenFile(const std::string& path);
  void ReadToEnd(const File& file);
  void GiveLines();
  void GiveLastLine();

  const std::string path_;
  const LineSink on_line_;
  std::vector<File> files_;
  std::string buffer_;
};
