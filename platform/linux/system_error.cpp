#include "platform/linux/system_error.h"

#include "platform/unicode.h"

#include <array>
#include <cstring>
#include <string>

namespace platform::linux_os {

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
