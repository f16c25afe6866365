// What the terminal, if there is one, can show, and what its Ctrl-C does.
#pragma once

#include <csignal>

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

// While it lives, Ctrl-C doesn't end fmxhost. What the plug-in has started still ends by it, as the terminal tells all
// processes of the foreground; system calls of the plug-in are restarted. Shields may be nested.
class InterruptShield {
public:
    InterruptShield();
    ~InterruptShield();
    InterruptShield(const InterruptShield&) = delete;
    InterruptShield& operator=(const InterruptShield&) = delete;

    // Whether Ctrl-C was pressed since the innermost shield was put up; false without one. Any thread.
    static bool wasHit();

private:
    struct sigaction before_ = {};
};

} // namespace fmxhost
