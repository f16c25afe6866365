// Texts put together in one go.
#pragma once

#include <string>
#include <string_view>

namespace fmxhost::reference {

template <typename... Parts>
std::string joined(const Parts&... parts)
{
    std::string text;
    (text.append(std::string_view(parts)), ...);
    return text;
}

} // namespace fmxhost::reference
