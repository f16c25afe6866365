// Where the operating system has no /proc.
#include "host/check/system.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#if defined(__APPLE__)
#include <mach-o/dyld.h>
#endif

namespace fmxhost::check {

Resources resourcesInUse()
{
    constexpr long mostExamined = 65536;
    const long limit = std::clamp(sysconf(_SC_OPEN_MAX), 256L, mostExamined);
    Resources resources;
    for (int descriptor = 0; descriptor < limit; ++descriptor) {
        resources.descriptors += fcntl(descriptor, F_GETFD) != -1 ? 1 : 0;
    }
    return resources;
}

void measureHeapsExactly() {}

std::filesystem::path executableFile()
{
    std::string path;
#if defined(__APPLE__)
    std::uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size); // dyld(3): answers the size that it needs
    path.resize(size);
    if (_NSGetExecutablePath(path.data(), &size) != 0) {
        return {};
    }
    path.resize(path.find('\0'));
#endif
    return path;
}

void endWithParent() {}

} // namespace fmxhost::check
