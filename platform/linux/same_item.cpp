#include "platform/file_manager.h"

#include "platform/linux/folder_identity.h"
#include "platform/linux/item_path.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <string>
#include <utility>

namespace platform {

using linux_os::Descriptor;
using linux_os::Identity;
using linux_os::ItemPath;

namespace {

constexpr int mostLinks = 40; // as the kernel has it (path_resolution(7))

// What a link says, as a path of its own.
std::optional<ItemPath> textOfLink(int folder, const char* name)
{
    std::array<char, PATH_MAX> text{};
    const auto size = readlinkat(folder, name, text.data(), text.size());
    if (size <= 0) {
        return std::nullopt;
    }
    return ItemPath::ofBytes(std::string(text.data(), static_cast<std::size_t>(size)));
}

Descriptor openFolderFrom(int folder, const ItemPath& path)
{
    return Descriptor(
        linux_os::retried([&] { return openat(folder, path.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); }));
}

// A name on the way that leads nowhere; any other error leaves open what is there.
bool leadsNowhere(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

// Whether removing the item `removed` takes away what `kept` names: the item itself, a folder around it, or either of
// those for what a link leads to, link by link.
bool takesAway(const struct stat& removed, ItemPath kept)
{
    Descriptor folder = openFolderFrom(AT_FDCWD, kept);
    for (int links = 0; folder && links <= mostLinks; ++links) {
        struct stat status {};
        if (fstatat(folder.get(), kept.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return !leadsNowhere(errno);
        }
        if (Identity::of(status) == Identity::of(removed) ||
            (S_ISDIR(removed.st_mode) && linux_os::isInside(folder.get(), Identity::of(removed)).value_or(true))) {
            return true;
        }
        if (!S_ISLNK(status.st_mode)) {
            return false;
        }
        std::optional<ItemPath> next = textOfLink(folder.get(), kept.name.c_str());
        if (!next) {
            return true;
        }
        kept = std::move(*next);
        folder = openFolderFrom(folder.get(), kept);
    }
    return !folder && !leadsNowhere(errno);
}

} // namespace

bool isSameItem(PathView first, PathView second)
{
    const std::optional<ItemPath> one = ItemPath::of(first);
    const std::optional<ItemPath> other = ItemPath::of(second);
    if (!one || !other) {
        return false;
    }
    struct stat oneStatus {};
    struct stat otherStatus {};
    if (lstat(one->text.c_str(), &oneStatus) != 0 || lstat(other->text.c_str(), &otherStatus) != 0) {
        return !leadsNowhere(errno);
    }
    return takesAway(oneStatus, *other) || takesAway(otherStatus, *one);
}

} // namespace platform
