// Plain POSIX: the frameworks compare paths by their text, which two spellings of one item defeat.

#include "platform/macos/item_identity.h"

#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>

namespace platform {

namespace {

bool isSame(const struct stat& first, const struct stat& second)
{
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

std::string withoutTrailingSlashes(std::string path)
{
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

// The folder that holds the item, with a slash at its end; "" for a bare name.
std::string folderOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

} // namespace

std::optional<bool> macos::liesInside(const std::string& path, const struct stat& folder)
{
    if (!S_ISDIR(folder.st_mode)) {
        return false;
    }
    struct stat item {};
    const bool isFolder = ::lstat(path.c_str(), &item) == 0 && S_ISDIR(item.st_mode);
    const std::string start = isFolder ? path : folderOf(withoutTrailingSlashes(path));
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(start.empty() ? "." : start.c_str(), nullptr),
                                                               &std::free);
    if (!resolved) {
        return std::nullopt;
    }
    for (std::string ancestor = resolved.get();;) {
        struct stat status {};
        if (::stat(ancestor.c_str(), &status) != 0) {
            return std::nullopt;
        }
        if (isSame(status, folder)) {
            return true;
        }
        if (ancestor == "/") {
            return false;
        }
        ancestor = withoutTrailingSlashes(folderOf(ancestor));
    }
}

} // namespace platform
