#include "host/terminal/terminal.h"

#include <unistd.h>

#include <cstdlib>

namespace fmxhost {
namespace {

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

bool isSet(const char* variable)
{
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

} // namespace

bool isCapableTerminal(int descriptor)
{
    return isatty(descriptor) != 0 && isSet("TERM") && std::string_view(std::getenv("TERM")) != "dumb";
}

bool wantsColour(int descriptor)
{
    return isCapableTerminal(descriptor) && !isSet("NO_COLOR");
}

std::string styled(std::string_view text, Style style, bool colour)
{
    if (!colour) {
        return std::string(text);
    }
    return std::string(escapeSequence(style)).append(text).append("\033[0m");
}

} // namespace fmxhost
