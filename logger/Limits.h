// The limits of the logs: all of them, here.

#pragma once

#include <sys/types.h>

#include <cstddef>

constexpr std::size_t kMebibyte = std::size_t{1024} * 1024;

// A longer message is cut to so many bytes, before escaping.
constexpr std::size_t kMaxMessageBytes = kMebibyte;

// A parameter of a logger only so that tests can lower them.
struct LogLimits {
  // A file of so many bytes is full: no further line is begun in it.
  off_t file_bytes = 10 * kMebibyte;

  // So many full files are kept, <name>.1.log being the latest.
  int old_files = 5;
};
