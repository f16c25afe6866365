#include "host/plugin_location.h"

#include <cstdlib>
#include <system_error>

namespace fmxhost {
namespace fs = std::filesystem;

fs::path defaultPluginFile()
{
    const char* named = std::getenv("FMXHOST_PLUGIN");
    if (named != nullptr && *named != '\0') {
        return named;
    }
    std::error_code error;
    const fs::path executable = fs::read_symlink("/proc/self/exe", error); // proc(5)
    if (!error) {
        fs::path beside = executable.parent_path() / "Folidex.fmx";
        if (fs::exists(beside, error)) {
            return beside;
        }
    }
    return FMXHOST_INSTALLED_PLUGIN;
}

} // namespace fmxhost
