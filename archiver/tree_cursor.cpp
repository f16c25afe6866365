#include "archiver/tree_cursor.h"

#include "platform/posix/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

namespace archiver {

using platform::posix::Descriptor;

int TreeCursor::go(std::string_view path, std::optional<mode_t> mode)
{
    while (path != path_ && !isBelow(path, path_)) {
        int error = 0;
        if (!stack_.leave(error)) {
            return error;
        }
        path_.resize(folderOf(path_).size());
    }
    while (path_.size() < path.size()) {
        const std::size_t start = path_.empty() ? 0 : path_.size() + 1;
        const std::size_t end = std::min(path.find('/', start), path.size());
        if (const int error = enter(std::string(path.substr(start, end - start)), mode)) {
            return error;
        }
        path_ = path.substr(0, end);
    }
    return 0;
}

// As a place: the right to search a folder is enough.
int TreeCursor::enter(const std::string& name, std::optional<mode_t> mode)
{
    constexpr int flags = platform::posix::asPlace | O_NOFOLLOW;
    Descriptor next = platform::posix::openAt(folder(), name.c_str(), flags);
    if (!next && errno == ENOENT && mode) {
        if (mkdirat(folder(), name.c_str(), *mode) != 0) {
            return errno;
        }
        next = platform::posix::openAt(folder(), name.c_str(), flags);
    }
    return next ? stack_.enter(name, std::move(next)) : errno;
}

std::string_view folderOf(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    return path.substr(0, slash == std::string_view::npos ? 0 : slash);
}

std::string nameOf(std::string_view path)
{
    return std::string(path.substr(path.rfind('/') + 1));
}

bool isBelow(std::string_view path, std::string_view folder)
{
    return folder.empty() || (path.size() > folder.size() && path[folder.size()] == '/' && path.starts_with(folder));
}

} // namespace archiver
