// Whether output goes to a terminal, and what one may do there.

#pragma once

#include <string>
#include <string_view>

// Whether colours may be used on `descriptor`: it is a terminal that knows them
// and NO_COLOR is not set, or empty.
bool MayColour(int descriptor);

// SGR parameters.
enum class Colour : int { kNone = 0, kBold = 1, kRed = 31, kYellow = 33 };

// `text` in `colour`, and in bold, when `enabled`; else as it stands.
std::string Coloured(std::string_view text, Colour colour, bool enabled);
