#include "host/executable.h"

#include <mach-o/dyld.h>

#include <cstdint>
#include <string>

namespace fmxhost {

std::filesystem::path executableFile()
{
    std::uint32_t size = 0;
    ::_NSGetExecutablePath(nullptr, &size); // dyld(3): answers the size that it needs
    std::string path(size, '\0');
    if (::_NSGetExecutablePath(path.data(), &size) != 0) {
        return {};
    }
    path.resize(path.find('\0'));
    return path;
}

} // namespace fmxhost
