#include "platform/posix/failure.h"

#include "platform/unicode.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <string>

namespace platform::posix {

namespace {

// strerror_r(3) returns the text in glibc, and an error in POSIX, which macOS follows.
[[maybe_unused]] const char* textOf(const char* text, const char*)
{
    return text;
}

[[maybe_unused]] const char* textOf(int, const char* buffer)
{
    return buffer;
}

// Callers may have typed it.
std::string shortened(std::string_view path)
{
    constexpr std::size_t longest = 4096; // PATH_MAX of Linux; macOS has less
    return path.size() <= longest ? std::string(path)
                                  : std::string(path.substr(0, longest / 2))
                                        .append(" ... ")
                                        .append(path.substr(path.size() - longest / 2));
}

} // namespace

Outcome systemFailure(std::string_view action, std::string_view path, int error)
{
    std::array<char, 256> buffer{};
    return failureBecause(action, path, textOf(strerror_r(error, buffer.data(), buffer.size()), buffer.data()));
}

Outcome failureBecause(std::string_view action, std::string_view path, std::string_view reason)
{
    std::string words = "could not ";
    words.append(action).append(" ").append(shortened(path)).append(": ").append(reason);
    return Outcome::failure(utf8FromUtf16(utf16FromUtf8(words)).value_or(words));
}

Outcome Failure::outcome(std::string_view action, std::string_view source, std::string_view target) const
{
    if (!*this) {
        return Outcome::success();
    }
    const bool isOfSource = side == Side::source;
    std::string whole(isOfSource ? source : target);
    const std::string below = path ? *path : "";
    if (!whole.empty() && whole.back() == '/' && !below.empty()) {
        whole.pop_back();
    }
    whole += below;
    const std::string_view verb = isOfSource ? action : "write";
    return reason != nullptr ? failureBecause(verb, whole, reason) : systemFailure(verb, whole, error);
}

} // namespace platform::posix
