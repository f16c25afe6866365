#include "host/base/output.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace fmxhost {
namespace {

// Empty where the variable isn't set.
std::string_view environment(const char* variable)
{
    const char* value = std::getenv(variable);
    return value == nullptr ? std::string_view() : value;
}

bool wantsColour(int descriptor)
{
    const std::string_view terminal = environment("TERM");
    return isatty(descriptor) != 0 && !terminal.empty() && terminal != "dumb" && environment("NO_COLOR").empty();
}

} // namespace

void print(std::string_view text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        throw OutputError(errno, std::generic_category());
    }
}

void flush()
{
    if (std::fflush(stdout) != 0) {
        throw OutputError(errno, std::generic_category());
    }
}

void report(std::string_view line)
{
    flush();
    std::cerr << line << std::endl;
}

void reportError(std::string_view message)
{
    report(styled("fmxhost:", Style::error, STDERR_FILENO) + " " + std::string(message));
}

void reserveStandardDescriptors()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        // Lowest number first; opened the wrong way round, so that using it fails with EBADF.
        const int flags = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        if (fcntl(descriptor, F_GETFD) == -1 && errno == EBADF && open("/dev/null", flags) == -1) {
            return;
        }
    }
}

std::string styled(std::string_view text, Style style, int descriptor)
{
    static constexpr std::array<const char*, 3> sequences{"\033[1;31m", "\033[1;32m", "\033[2m"};
    const std::string plain(text);
    return wantsColour(descriptor) ? sequences.at(static_cast<std::size_t>(style)) + plain + "\033[0m" : plain;
}

std::string jsonText(const Json& value)
{
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace fmxhost
