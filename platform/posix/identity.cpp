#include "platform/posix/identity.h"

#include "platform/file_manager.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/item_path.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <string>
#include <utility>

namespace platform {

using posix::asPlace;
using posix::Descriptor;
using posix::Identity;
using posix::ItemPath;
using posix::openAt;

namespace {

// Whether the folder is its own parent. Empty when that can't be seen.
std::optional<bool> isRoot(int folder, int parent)
{
#ifdef __linux__
    struct statx here {};
    struct statx above {};
    const unsigned mask = STATX_INO | STATX_MNT_ID; // a folder may be mounted below itself
    if (statx(folder, "", AT_EMPTY_PATH, mask, &here) != 0 || statx(parent, "", AT_EMPTY_PATH, mask, &above) != 0) {
        return std::nullopt;
    }
    return here.stx_dev_major == above.stx_dev_major && here.stx_dev_minor == above.stx_dev_minor &&
           here.stx_ino == above.stx_ino && here.stx_mnt_id == above.stx_mnt_id;
#else
    struct stat here {};
    struct stat above {};
    if (fstat(folder, &here) != 0 || fstat(parent, &above) != 0) {
        return std::nullopt;
    }
    return Identity::of(here) == Identity::of(above);
#endif
}

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

// A name on the way that leads nowhere; any other error leaves open what is there.
bool leadsNowhere(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

// An entry of a folder, and what is there.
struct Entry {
    int folder;
    const std::string& name;
    struct stat status {};
};

// One item has several entries only as a file with hard links. Of those in one folder the name tells them apart.
bool isSameEntry(const Entry& one, const Entry& other)
{
    if (Identity::of(one.status) != Identity::of(other.status)) {
        return false;
    }
    if (S_ISDIR(one.status.st_mode) || one.status.st_nlink == 1) {
        return true;
    }
    struct stat folder {};
    struct stat otherFolder {};
    return fstat(one.folder, &folder) != 0 || fstat(other.folder, &otherFolder) != 0 ||
           (Identity::of(folder) == Identity::of(otherFolder) && one.name == other.name);
}

bool goesWith(const Entry& removed, const Entry& kept)
{
    if (isSameEntry(removed, kept)) {
        return true;
    }
    if (!S_ISDIR(removed.status.st_mode)) {
        return false;
    }
    const Descriptor inner =
        S_ISDIR(kept.status.st_mode) ? openAt(kept.folder, kept.name.c_str(), asPlace) : Descriptor();
    return posix::isInside(inner ? inner.get() : kept.folder, Identity::of(removed.status)).value_or(true);
}

} // namespace

std::optional<bool> posix::isInside(int folder, Identity ancestor)
{
    Descriptor current;
    for (int at = folder;;) {
        struct stat status {};
        if (fstat(at, &status) != 0) {
            return std::nullopt;
        }
        if (Identity::of(status) == ancestor) {
            return true;
        }
        Descriptor parent = openAt(at, "..", asPlace);
        const std::optional<bool> isTop = parent ? isRoot(at, parent.get()) : std::nullopt;
        if (!isTop) {
            return std::nullopt;
        }
        if (*isTop) {
            return false;
        }
        current = std::move(parent);
        at = current.get();
    }
}

bool removalTakesAway(PathView removed, PathView kept)
{
    const std::optional<ItemPath> gone = ItemPath::of(removed);
    std::optional<ItemPath> next = ItemPath::of(kept);
    if (!gone || !next) {
        return false;
    }
    constexpr int mostLinks = 40; // as Linux has it (path_resolution(7)); macOS has 32 (MAXSYMLINKS)
    const Descriptor goneFolder = openAt(AT_FDCWD, gone->folder.c_str(), asPlace);
    Entry one{goneFolder.get(), gone->name};
    if (!goneFolder || fstatat(one.folder, one.name.c_str(), &one.status, AT_SYMLINK_NOFOLLOW) != 0) {
        return !leadsNowhere(errno);
    }
    Descriptor folder = openAt(AT_FDCWD, next->folder.c_str(), asPlace);
    for (int links = 0; folder && links <= mostLinks; ++links) {
        Entry other{folder.get(), next->name};
        if (fstatat(other.folder, other.name.c_str(), &other.status, AT_SYMLINK_NOFOLLOW) != 0) {
            return !leadsNowhere(errno);
        }
        if (goesWith(one, other)) {
            return true;
        }
        if (!S_ISLNK(other.status.st_mode)) {
            return false;
        }
        std::optional<ItemPath> text = textOfLink(folder.get(), next->name.c_str());
        if (!text) {
            return true;
        }
        next = std::move(text);
        folder = openAt(folder.get(), next->folder.c_str(), asPlace);
    }
    return !folder && !leadsNowhere(errno);
}

} // namespace platform
