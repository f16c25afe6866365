#include "platform/linux/system_error.h"

#include "platform/unicode.h"

#include <array>
#include <climits>
#include <cstddef>
#include <cstring>
#include <string>

namespace platform::linux_os {

namespace {

// A path as it can be: of a longer text, which a caller may have typed, the beginning and the end.
std::string shortened(std::string_view path)
{
    constexpr std::size_t kept = PATH_MAX / 2;
    if (path.size() <= PATH_MAX) {
        return std::string(path);
    }
    return std::string(path.substr(0, kept)).append(" ... ").append(path.substr(path.size() - kept));
}

} // namespace

Outcome systemFailure(std::string_view action, std::string_view path, int error)
{
    std::array<char, 256> buffer{};
    return failure(action, path, strerror_r(error, buffer.data(), buffer.size()));
}

Outcome failure(std::string_view action, std::string_view path, std::string_view reason)
{
    std::string words = "could not ";
    words.append(action).append(" ").append(shortened(path)).append(": ").append(reason);
    return Outcome::failure(utf8FromUtf16(utf16FromUtf8(words)).value_or(words));
}

} // namespace platform::linux_os
