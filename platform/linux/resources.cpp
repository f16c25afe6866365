#include "platform/resources.h"

#include "platform/linux/script_folder.h"
#include "platform/posix/item_path.h"
#include "resources/embedded.h"

#include <fcntl.h>

#include <algorithm>
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
    const std::string executable = posix::readLink(AT_FDCWD, "/proc/self/exe").value_or("");
    const std::size_t slash = executable.rfind('/');
    return executable.substr(0, slash == 0 ? 1 : slash);
}

} // namespace platform
