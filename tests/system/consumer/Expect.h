#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the program as failed unless `holds`.
inline void Expect(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "failed: %s\n", what);
    std::exit(EXIT_FAILURE);
  }
}
