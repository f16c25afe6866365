#include "host/terminal/history_file.h"

#include <cstdlib>
#include <system_error>

namespace fmxhost {
namespace fs = std::filesystem;
namespace {

fs::path absolutePathIn(const char* variable)
{
    const char* value = std::getenv(variable);
    return value != nullptr && *value == '/' ? fs::path(value) : fs::path();
}

} // namespace

fs::path historyFile()
{
    fs::path state = absolutePathIn("XDG_STATE_HOME");
    if (state.empty()) {
        const fs::path home = absolutePathIn("HOME");
        if (home.empty()) {
            return {};
        }
        state = home / ".local/state";
    }
    return state / "fmxhost/history";
}

bool makeHistoryFolder(const fs::path& file)
{
    const fs::path folder = file.parent_path();
    std::error_code error;
    if (fs::create_directories(folder, error)) {
        fs::permissions(folder, fs::perms::owner_all, error); // calculations may hold passwords
    }
    return fs::is_directory(folder, error);
}

} // namespace fmxhost
