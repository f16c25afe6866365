#include "platform/file_manager.h"

#include "platform/linux/item_path.h"
#include "platform/linux/system_error.h"
#include "platform/unicode.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>

namespace platform {

namespace {

constexpr mode_t everybody = S_IRWXU | S_IRWXG | S_IRWXO; // less the umask

// Answers an errno value; a folder that is there is none.
int makeOne(const char* path)
{
    if (mkdir(path, everybody) == 0) {
        return 0;
    }
    const int error = errno;
    struct stat status {};
    return error == EEXIST && stat(path, &status) == 0 && S_ISDIR(status.st_mode) ? 0 : error;
}

} // namespace

Outcome createFolder(PathView path)
{
    constexpr const char* action = "create";
    const std::optional<std::string> wanted = fileSystemRepresentation(path);
    if (!wanted || wanted->empty()) {
        return linux_os::nothingThere(action, path);
    }
    // Upwards to the innermost folder that is there or can be made, then down again. A zero ends the path early.
    std::string text = *wanted;
    std::size_t length = text.size();
    int error = makeOne(text.c_str());
    while (error == ENOENT) {
        const std::size_t end = text.find_last_not_of('/', length - 1);
        const std::size_t slash = end == std::string::npos ? end : text.rfind('/', end);
        if (slash == std::string::npos || slash == 0) {
            break;
        }
        text[slash] = '\0';
        length = slash;
        error = makeOne(text.c_str());
    }
    while (error == 0 && length < text.size()) {
        text[length] = '/';
        length = std::min(text.find('\0', length), text.size());
        error = makeOne(text.c_str());
    }
    return error == 0 ? Outcome::success() : linux_os::systemFailure(action, text.c_str(), error);
}

} // namespace platform
