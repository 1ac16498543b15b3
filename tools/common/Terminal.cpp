#include "tools/common/Terminal.h"

#include <unistd.h>

#include <cstdlib>

namespace {

std::string_view Environment(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

}  // namespace

bool MayColour(int descriptor) {
  return isatty(descriptor) == 1 && Environment("NO_COLOR").empty() &&
         Environment("TERM") != "dumb";
}

std::string Coloured(std::string_view text, Colour colour, bool enabled) {
  if (!enabled || colour == Colour::kNone) {
    return std::string(text);
  }
  return "\x1b[1;" + std::to_string(static_cast<int>(colour)) + "m" +
         std::string(text) + "\x1b[0m";
}
