#include "host/terminal/terminal.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

namespace fmxhost {
namespace {

// Set in a signal handler and read by the spinner's thread.
std::atomic<bool> hit = false;
static_assert(std::atomic<bool>::is_always_lock_free);

std::string_view escapeSequence(Style style)
{
    switch (style) {
    case Style::error:
        return "\033[1;31m";
    case Style::pointer:
        return "\033[1;32m";
    default:
        return "\033[2m";
    }
}

// Empty where the variable isn't set.
std::string_view environment(const char* variable)
{
    const char* value = std::getenv(variable);
    return value == nullptr ? std::string_view() : value;
}

} // namespace

bool isCapableTerminal(int descriptor)
{
    const std::string_view terminal = environment("TERM");
    return isatty(descriptor) != 0 && !terminal.empty() && terminal != "dumb";
}

bool wantsColour(int descriptor)
{
    return isCapableTerminal(descriptor) && environment("NO_COLOR").empty();
}

std::string styled(std::string_view text, Style style, bool colour)
{
    if (!colour) {
        return std::string(text);
    }
    return std::string(escapeSequence(style)).append(text).append("\033[0m");
}

InterruptShield::InterruptShield()
{
    hit = false;
    // A handler rather than SIG_IGN, which a program that the plug-in starts would inherit.
    struct sigaction action = {};
    action.sa_handler = [](int) { hit = true; };
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, &before_);
}

InterruptShield::~InterruptShield()
{
    sigaction(SIGINT, &before_, nullptr);
    hit = false;
}

bool InterruptShield::wasHit()
{
    return hit;
}

} // namespace fmxhost
