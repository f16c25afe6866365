#include "host/base/output.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>

namespace fmxhost {
namespace {

constexpr std::size_t bufferSize = std::size_t{64} * 1024;

// Empty where the variable isn't set.
std::string_view environment(const char* variable)
{
    const char* value = std::getenv(variable);
    return value == nullptr ? std::string_view() : value;
}

} // namespace

void Output::write(std::string_view bytes)
{
    buffer_.append(bytes);
    if (buffer_.size() >= bufferSize) {
        flush();
    }
}

void Output::flush()
{
    std::string_view rest = buffer_;
    while (!rest.empty()) {
        const ssize_t written = ::write(descriptor_, rest.data(), rest.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            const int error = errno;
            buffer_.clear();
            throw OutputError(error, std::generic_category());
        }
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    buffer_.clear();
}

void Output::report(std::string_view line)
{
    flush();
    Output error(STDERR_FILENO);
    try {
        error.write(line);
        error.write("\n");
        error.flush();
    } catch (const OutputError&) {
        // There is nowhere left to say it; the exit status does.
    }
}

void Output::reportError(std::string_view message)
{
    report(styled("fmxhost:", Style::error, wantsColour(STDERR_FILENO)) + " " + std::string(message));
}

void reserveStandardDescriptors()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
            // Lowest number first; opened the wrong way round, so that using it fails with EBADF.
            const int flags = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
            if (open("/dev/null", flags) == -1) {
                return;
            }
        }
    }
}

bool wantsColour(int descriptor)
{
    const std::string_view terminal = environment("TERM");
    return isatty(descriptor) != 0 && !terminal.empty() && terminal != "dumb" && environment("NO_COLOR").empty();
}

std::string styled(std::string_view text, Style style, bool colour)
{
    static constexpr std::array<std::string_view, 3> sequences{"\033[1;31m", "\033[1;32m", "\033[2m"};
    if (!colour) {
        return std::string(text);
    }
    return std::string(sequences.at(static_cast<std::size_t>(style))).append(text).append("\033[0m");
}

std::string jsonObject(const std::vector<JsonMember>& members)
{
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const auto& [name, value] : members) {
        std::visit([&object, &name = name](const auto& plain) { object[name] = plain; }, value);
    }
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace fmxhost
