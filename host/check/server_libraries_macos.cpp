// On macOS the system's libraries are where every Mac has them, and named by their whole paths.
#include "host/check/server_libraries.h"

#include <algorithm>
#include <array>

namespace fmxhost::check {
namespace {

bool isSystemPath(std::string_view path)
{
    return path.starts_with("/usr/lib/") || path.starts_with("/System/Library/");
}

} // namespace

bool isServerLibrary(std::string_view name)
{
    const std::string_view lastPart = name.substr(name.rfind('/') + 1);
    return isSystemPath(name) || lastPart == "FMWrapper" || lastPart == "libFMWrapper.dylib";
}

std::optional<std::string> newestVersionIfNewer(std::string_view)
{
    return std::nullopt; // its libraries have no versions of symbols
}

bool isServerFolder(std::string_view folder)
{
    // FileMaker's own frameworks, and what the bundle brings.
    constexpr std::array<std::string_view, 2> own{"@executable_path/../Frameworks", "@loader_path/../Frameworks"};
    return isSystemPath(folder) || std::find(own.begin(), own.end(), folder) != own.end();
}

} // namespace fmxhost::check
