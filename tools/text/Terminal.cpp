#include "tools/text/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "tools/text/Characters.h"

bool TakesEscapes(int descriptor) {
  const char* const type = std::getenv("TERM");
  return isatty(descriptor) == 1 &&
         (type == nullptr || type != std::string_view("dumb"));
}

bool MayColour(int descriptor) {
  const char* const refusal = std::getenv("NO_COLOR");
  return TakesEscapes(descriptor) && (refusal == nullptr || *refusal == '\0');
}

std::string Coloured(std::string_view text, Colour colour, bool enabled) {
  if (!enabled || colour == Colour::kNone) {
    return std::string(text);
  }
  return "\x1b[1;" + std::to_string(static_cast<int>(colour)) + "m" +
         std::string(text) + "\x1b[0m";
}

TerminalSize SizeOf(int descriptor) {
  constexpr TerminalSize kUsual{24, 80};
  winsize size{};
  ioctl(descriptor, TIOCGWINSZ, &size);
  return size.ws_row == 0 || size.ws_col == 0
             ? kUsual
             : TerminalSize{size.ws_row, size.ws_col};
}

// Each line overwrites the previous one. Wiping the screen first would flicker.
std::string Screenful(std::string_view text, TerminalSize size) {
  constexpr const char* kHome = "\x1b[H";
  constexpr const char* kWipeBelow = "\x1b[J";
  auto left = static_cast<std::size_t>(std::ranges::count(text, '\n'));
  std::string result = kHome;
  // The cursor needs a row as well.
  for (std::size_t row = 2; left > 0 && row <= size.rows; ++row, --left) {
    const std::size_t end = text.find('\n');
    const bool is_last = row == size.rows && left > 1;
    result += Fitted(is_last ? "... " + std::to_string(left) + " lines more"
                             : std::string(text.substr(0, end)),
                     size.columns) +
              "\n";
    text.remove_prefix(end + 1);
  }
  return result + kWipeBelow;
}
