// What the terminal, if there is one, can show.
#pragma once

#include <string>
#include <string_view>

namespace fmxhost {

enum class Style { error, pointer, faint };

// Whether the descriptor leads to a terminal that understands escape sequences (TERM is set and isn't "dumb").
bool isCapableTerminal(int descriptor);

// isCapableTerminal(), and NO_COLOR isn't set to anything but an empty text (https://no-color.org).
bool wantsColour(int descriptor);

// The text in the style, or as it is when `colour` is false.
std::string styled(std::string_view text, Style style, bool colour);

} // namespace fmxhost
