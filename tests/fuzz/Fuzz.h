// What the fuzz targets share. A target is one source file that defines
// LLVMFuzzerTestOneInput; linked with libFuzzer it is fed generated inputs, and
// with ReplayMain.cpp the files of its corpus.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size);

// Ends the process, for the fuzzer to see, unless `holds`.
inline void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

inline std::string_view Text(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// Cuts the first line off `text` and returns it; all of it when there is but
// one.
inline std::string TakeLine(std::string_view& text) {
  const std::string line(text.substr(0, text.find('\n')));
  text.remove_prefix(line.size() < text.size() ? line.size() + 1 : text.size());
  return line;
}
