#include "platform/posix/identity.h"

#include "platform/file_manager.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/file_times.h"
#include "platform/posix/item_path.h"
#include "platform/posix/tree_walk.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

namespace platform {

using posix::areEqual;
using posix::asPlace;
using posix::changeTime;
using posix::Descriptor;
using posix::Failure;
using posix::Identity;
using posix::ItemPath;
using posix::modificationTime;
using posix::openAt;
using posix::TreeEntry;

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

// Through a network or FUSE an item is on another device, but nearly always has its number, and its times, of which
// nobody can set the one of the last change.
bool mayBeSame(const struct stat& one, const struct stat& other)
{
    return one.st_ino == other.st_ino &&
           (one.st_dev == other.st_dev ||
            ((one.st_mode & S_IFMT) == (other.st_mode & S_IFMT) && one.st_size == other.st_size &&
             areEqual(modificationTime(one), modificationTime(other)) && areEqual(changeTime(one), changeTime(other))));
}

// One item has several entries only as a file with hard links. Of those in one folder the name tells them apart.
bool isSameEntry(const Entry& one, const Entry& other)
{
    if (!mayBeSame(one.status, other.status)) {
        return false;
    }
    if (S_ISDIR(one.status.st_mode) || one.status.st_nlink == 1) {
        return true;
    }
    struct stat folder {};
    struct stat otherFolder {};
    return fstat(one.folder, &folder) != 0 || fstat(other.folder, &otherFolder) != 0 ||
           (mayBeSame(folder, otherFolder) && one.name == other.name);
}

// Looks through a tree for folders: one that is mounted elsewhere, too, isn't found by going up from there.
class FolderSearch : public posix::TreeVisitor {
public:
    explicit FolderSearch(const std::vector<struct stat>& wanted) : wanted_(wanted) {}

    Failure visit(const TreeEntry&) override { return {}; }

    Failure enter(const TreeEntry&, int opened) override
    {
        struct stat status {};
        if (fstat(opened, &status) != 0) {
            return Failure::ofSource(errno);
        }
        const bool isFound =
            std::any_of(wanted_.begin(), wanted_.end(), [&](const struct stat& one) { return mayBeSame(one, status); });
        return isFound ? Failure::because("found") : Failure{};
    }

    Failure failed(const TreeEntry& entry, int error) override
    {
        return error == ENOENT && !entry.isRoot() ? Failure{} : Failure::ofSource(error);
    }

private:
    const std::vector<struct stat>& wanted_;
};

// Whether what is removed is the item, or a folder above it; the folders around the item are added to `around`.
bool goesWith(const Entry& removed, const Entry& kept, std::vector<struct stat>& around)
{
    struct stat holder {};
    if (fstat(kept.folder, &holder) != 0 || isSameEntry(removed, kept)) {
        return true;
    }
    if (!S_ISDIR(removed.status.st_mode)) {
        return false;
    }
    around.push_back(holder);
    Descriptor inner;
    if (S_ISDIR(kept.status.st_mode)) {
        around.push_back(kept.status);
        inner = openAt(kept.folder, kept.name.c_str(), asPlace);
    }
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

bool posix::canBeReached(PathView path)
{
    const std::optional<std::string> bytes = fileSystemRepresentation(path);
    struct stat status {};
    if (!bytes || stat(bytes->c_str(), &status) != 0) {
        return false;
    }
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        return true;
    }
    const Descriptor item = openAt(AT_FDCWD, bytes->c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
    return item || errno == EACCES || errno == EPERM; // a move needs no permission to read
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
    std::vector<struct stat> around;
    Descriptor folder = openAt(AT_FDCWD, next->folder.c_str(), asPlace);
    for (int links = 0; folder && links <= mostLinks; ++links) {
        Entry other{folder.get(), next->name};
        if (fstatat(other.folder, other.name.c_str(), &other.status, AT_SYMLINK_NOFOLLOW) != 0) {
            return !leadsNowhere(errno);
        }
        if (goesWith(one, other, around)) {
            return true;
        }
        if (!S_ISLNK(other.status.st_mode)) {
            FolderSearch search(around);
            return S_ISDIR(one.status.st_mode) && walkTree(one.folder, one.name.c_str(), search);
        }
        std::optional<std::string> text = posix::readLink(folder.get(), next->name.c_str());
        next = text ? ItemPath::ofBytes(std::move(*text)) : std::nullopt;
        if (!next) {
            return true;
        }
        folder = openAt(folder.get(), next->folder.c_str(), asPlace);
    }
    return !folder && !leadsNowhere(errno);
}

} // namespace platform
