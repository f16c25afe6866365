#include "platform/resources.h"

#include "platform/linux/script_folder.h"
#include "platform/path_text.h"
#include "resources/embedded.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>

namespace platform {

std::optional<std::u16string> localizedString(Bundle, std::string_view table, std::string_view key)
{
    const auto found = std::find_if(resources::strings.begin(), resources::strings.end(),
                                    [key](const resources::Text& text) { return text.key == key; });
    if (table != "KORBFolidex" || found == resources::strings.end()) {
        return std::nullopt;
    }
    return std::u16string(found->value);
}

std::optional<ResourceFile> resourceFile(Bundle, std::string_view name, std::string_view type)
{
    if (name != "ZipFuncs" || type != "sh") {
        return std::nullopt;
    }
    return linux_os::archiveScript();
}

std::string hostApplicationPath()
{
    std::array<char, PATH_MAX> buffer{};
    const auto length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
    const std::string_view executable(buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    const std::size_t slash = executable.rfind('/');
    return std::string(executable.substr(0, slash == 0 ? 1 : std::min(slash, executable.size())));
}

} // namespace platform
