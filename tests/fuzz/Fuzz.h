// Helpers of the fuzz targets. A target is one source file that defines
// LLVMFuzzerTestOneInput. libFuzzer calls it with generated inputs,
// ReplayMain.cpp with the files of its corpus.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size);

// Aborts unless `holds`; the fuzzer then reports a failure.
inline void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

inline std::string_view Text(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// Removes the first line from `text` and returns it without its line feed.
inline std::string RemoveFirstLine(std::string_view& text) {
  const std::string line(text.substr(0, text.find('\n')));
  text.remove_prefix(line.size() < text.size() ? line.size() + 1 : text.size());
  return line;
}
