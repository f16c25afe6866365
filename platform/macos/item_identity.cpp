// Plain POSIX: the frameworks compare paths by their text, which two spellings of one item defeat.

#include "platform/macos/item_identity.h"

#include "platform/file_manager.h"
#include "platform/unicode.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>

namespace platform {

namespace {

constexpr int mostLinks = 32; // MAXSYMLINKS of sys/param.h on macOS

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

std::optional<std::string> linkText(const std::string& path)
{
    std::array<char, PATH_MAX> text{};
    const auto size = ::readlink(path.c_str(), text.data(), text.size());
    if (size <= 0) {
        return std::nullopt;
    }
    return std::string(text.data(), static_cast<std::size_t>(size));
}

// A name on the way that leads nowhere; any other error leaves open what is there.
bool leadsNowhere(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

// One item has several names only as a file with hard links. Of those in one folder the name tells them apart.
bool isSameName(const std::string& path, const struct stat& item, const std::string& other)
{
    if (S_ISDIR(item.st_mode) || item.st_nlink == 1) {
        return true;
    }
    const std::string folder = folderOf(path);
    const std::string otherFolder = folderOf(other);
    struct stat status {};
    struct stat otherStatus {};
    return ::stat(folder.empty() ? "." : folder.c_str(), &status) != 0 ||
           ::stat(otherFolder.empty() ? "." : otherFolder.c_str(), &otherStatus) != 0 ||
           (isSame(status, otherStatus) && path.substr(folder.size()) == other.substr(otherFolder.size()));
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

bool removalTakesAway(PathView removed, PathView kept)
{
    const auto gone = fileSystemRepresentation(removed);
    const auto stays = fileSystemRepresentation(kept);
    if (!gone || !stays || gone->empty() || stays->empty()) {
        return false;
    }
    const std::string path = withoutTrailingSlashes(*gone);
    struct stat item {};
    if (::lstat(path.c_str(), &item) != 0) {
        return !leadsNowhere(errno);
    }
    std::string next = *stays;
    for (int links = 0; links <= mostLinks; ++links) {
        next = withoutTrailingSlashes(std::move(next));
        struct stat status {};
        if (::lstat(next.c_str(), &status) != 0) {
            return !leadsNowhere(errno);
        }
        if ((isSame(status, item) && isSameName(path, item, next)) || macos::liesInside(next, item).value_or(true)) {
            return true;
        }
        if (!S_ISLNK(status.st_mode)) {
            return false;
        }
        const auto text = linkText(next);
        if (!text) {
            return true;
        }
        next = text->front() == '/' ? *text : folderOf(next) + *text;
    }
    return false;
}

} // namespace platform
