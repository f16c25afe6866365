#include "platform/resources.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

std::string hostApplicationPath()
{
    std::array<char, PATH_MAX> buffer{};
    const auto length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
    const std::string_view executable(buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    const std::size_t slash = executable.rfind('/');
    return std::string(executable.substr(0, slash == 0 ? 1 : std::min(slash, executable.size())));
}

} // namespace platform
