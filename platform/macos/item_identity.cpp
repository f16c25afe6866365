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

// Whether removing the item `removed` takes away what `kept` names: the item itself, a folder around it, or either of
// those for what a link leads to, link by link.
bool takesAway(const struct stat& removed, std::string kept)
{
    for (int links = 0; links <= mostLinks; ++links) {
        kept = withoutTrailingSlashes(std::move(kept));
        struct stat status {};
        if (::lstat(kept.c_str(), &status) != 0) {
            return !leadsNowhere(errno);
        }
        if (isSame(status, removed) || cocoa::liesInside(kept, removed).value_or(true)) {
            return true;
        }
        if (!S_ISLNK(status.st_mode)) {
            return false;
        }
        const auto text = linkText(kept);
        if (!text) {
            return true;
        }
        kept = text->front() == '/' ? *text : folderOf(kept) + *text;
    }
    return false;
}

} // namespace

std::optional<bool> cocoa::liesInside(const std::string& path, const struct stat& folder)
{
    if (!S_ISDIR(folder.st_mode)) {
        return false;
    }
    const std::string above = folderOf(withoutTrailingSlashes(path));
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(above.empty() ? "." : above.c_str(), nullptr),
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

bool isSameItem(PathView first, PathView second)
{
    const auto one = fileSystemRepresentation(first);
    const auto other = fileSystemRepresentation(second);
    if (!one || !other || one->empty() || other->empty()) {
        return false;
    }
    struct stat oneStatus {};
    struct stat otherStatus {};
    if (::lstat(withoutTrailingSlashes(*one).c_str(), &oneStatus) != 0 ||
        ::lstat(withoutTrailingSlashes(*other).c_str(), &otherStatus) != 0) {
        return !leadsNowhere(errno);
    }
    return takesAway(oneStatus, *other) || takesAway(otherStatus, *one);
}

} // namespace platform
