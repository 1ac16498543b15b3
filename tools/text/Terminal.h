// Whether output goes to a terminal, and what one may do there.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Whether `descriptor` is a terminal that knows escape sequences.
bool TakesEscapes(int descriptor);

// Whether colours may be used on `descriptor`: it takes escapes, and NO_COLOR
// is not set, or empty.
bool MayColour(int descriptor);

// SGR parameters.
enum class Colour : int { kNone = 0, kBold = 1, kRed = 31, kYellow = 33 };

// `text` in `colour`, and in bold, when `enabled`; else as it stands.
std::string Coloured(std::string_view text, Colour colour, bool enabled);

struct TerminalSize {
  std::size_t rows;
  std::size_t columns;
};

// The present size of the terminal at `descriptor`; 24 rows of 80 columns where
// it does not tell.
TerminalSize SizeOf(int descriptor);

// What puts the lines of `text` on a terminal in place of all that it shows.
// Lines are cut where they are too wide, and the last ones replaced by their
// number where there are too many. The cursor ends up at the start of the line
// below them, so that there is nothing to restore.
std::string Screenful(std::string_view text, TerminalSize size);
