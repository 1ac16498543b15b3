// Whether output goes to a terminal, and how to use one.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Whether `descriptor` is a terminal that understands escape sequences.
bool TakesEscapes(int descriptor);

// Whether colours may be used on `descriptor`: it understands escapes, and
// NO_COLOR is unset or empty.
bool MayColour(int descriptor);

// SGR parameters.
enum class Colour : int { kNone = 0, kBold = 1, kRed = 31, kYellow = 33 };

// `text` in bold and in `colour` if `enabled`, else unchanged.
std::string Coloured(std::string_view text, Colour colour, bool enabled);

struct TerminalSize {
  std::size_t rows;
  std::size_t columns;
};

// The present size of the terminal at `descriptor`; 24 rows of 80 columns if it
// is unknown.
TerminalSize SizeOf(int descriptor);

// The output that replaces a terminal's content by the lines of `text`. Lines
// that are too wide are cut; if there are too many lines, their number replaces
// the last ones. The cursor ends up at the start of the line below, so there is
// nothing to restore.
std::string Screenful(std::string_view text, TerminalSize size);
