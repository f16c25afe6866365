// The bundle is found by the place of its binary, Contents/MacOS, for want of a reference from the host.

#include "platform/linux/desktop_uri.h"
#include "platform/resources.h"
#include "platform/unicode.h"

#include <dlfcn.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace platform {

std::optional<std::u16string> resourceUrl(Bundle, std::string_view name, std::string_view type)
{
    static const char here = 0;
    Dl_info binary{};
    if (dladdr(&here, &binary) == 0 || binary.dli_fname == nullptr) {
        return std::nullopt;
    }
    std::error_code error;
    const auto folder = std::filesystem::canonical(binary.dli_fname, error).parent_path();
    const auto file = folder.parent_path() / "Resources" / (std::string(name) + '.' + std::string(type));
    if (folder.filename() != "MacOS" || !std::filesystem::is_regular_file(file, error)) {
        return std::nullopt;
    }
    return utf16FromUtf8("file://" + linux_os::percentEncoded(file.native()));
}

} // namespace platform
