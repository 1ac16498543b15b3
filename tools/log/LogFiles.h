// The files of a log, and the lines in them.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// The files that a log consists of, the oldest first: for "launcher.log" that
// is ..., "launcher.2.log", "launcher.1.log", those that are just being
// rotated ("launcher.<time>.full"), and "launcher.log" itself. Only what
// exists.
std::vector<std::string> FindLogFiles(const std::string& path);

// Gives lines, without their line feeds. Memory is bounded: of a line of more
// than 16 MiB, which no logger writes, only the end is given.
class LineReader {
 public:
  using Sink = std::function<void(std::string_view line)>;

  // Reads what `descriptor` has, up to its present end, and gives `sink` the
  // whole lines. A part of a line is kept for the next call. `piece`, when set,
  // is called after each MiB with its bytes. Returns the bytes read.
  std::uint64_t ReadAll(int descriptor, const Sink& sink,
                        const std::function<void(std::uint64_t)>& piece = {});

  // Gives `sink` a last line that has no line feed.
  void Finish(const Sink& sink);

 private:
  void GiveLines(const Sink& sink);

  std::string buffer_;
};
