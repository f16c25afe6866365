#include "platform/resources.h"

namespace platform {

std::optional<std::u16string> resourceUrl(Bundle, std::string_view, std::string_view)
{
    return std::nullopt;
}

} // namespace platform
