#include "host/plugin_location.h"

#include "host/executable.h"

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
    const fs::path executable = fs::canonical(executableFile(), error);
    if (!error) {
        fs::path beside = executable.parent_path() / FMXHOST_PLUGIN_NAME;
        if (fs::exists(beside, error)) {
            return beside;
        }
    }
    return fs::path(FMXHOST_EXTENSIONS_FOLDER) / FMXHOST_PLUGIN_NAME;
}

} // namespace fmxhost
