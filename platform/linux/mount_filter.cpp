#include "platform/linux/mount_filter.h"

#include <libmount/libmount.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

namespace platform::linux_os {

namespace {

// Network and cluster file systems, and folders shared with a virtual machine's host, that libmount doesn't know.
constexpr std::array<std::string_view, 16> moreNetworkTypes{"acfs",   "beegfs", "ceph",   "coda",  "davfs",    "drvfs",
                                                            "gfs2",   "gpfs",   "lustre", "ocfs2", "orangefs", "panfs",
                                                            "prl_fs", "pvfs2",  "vmhgfs", "wekafs"};

// Types that show other file systems' files and that libmount doesn't count as pseudo.
constexpr std::array<std::string_view, 3> layeredTypes{"aufs", "ecryptfs", "shiftfs"};

template <typename List>
bool contains(const List& list, std::string_view value)
{
    return std::find(list.begin(), list.end(), value) != list.end();
}

// What answers from user space may be a network file system or may have stopped answering; only drivers for a disk
// ("fuseblk") are as good as the kernel's.
bool isUserSpaceType(std::string_view type)
{
    return type == "fuse" || type.starts_with("fuse.");
}

bool isBelow(std::string_view path, std::string_view folder)
{
    if (folder == "/") {
        return path != "/";
    }
    return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

// An installed application package, which is no place to keep files.
bool isPackageImage(const Mount& mount)
{
    return mount.fileSystem == "squashfs" &&
           (isBelow(mount.target, "/snap") || isBelow(mount.target, "/var/lib/snapd/snap"));
}

bool isLocalVolume(const Mount& mount)
{
    if (mount.target == "/") {
        // The process itself runs from there, from a container's layers or a virtual machine's shared folder.
        return !mount.isNetwork || isUserSpaceType(mount.fileSystem) || mount.fileSystem == "9p";
    }
    return !mount.isPseudo && !mount.isNetwork && !isPackageImage(mount);
}

// The mount and those that it is mounted on, up to the topmost that is known. IDs are used again, so in a file that
// was read while mounts came and went parents may lead in a circle.
std::vector<const Mount*> wayUp(const Mount& mount, const std::vector<Mount>& mounts)
{
    std::vector<const Mount*> way;
    for (const Mount* level = &mount; level != nullptr && std::find(way.begin(), way.end(), level) == way.end();) {
        way.push_back(level);
        const auto parent =
            std::find_if(mounts.begin(), mounts.end(), [&](const Mount& other) { return other.id == level->parent; });
        level = parent == mounts.end() ? nullptr : &*parent;
    }
    return way;
}

// Whether another mount lies on top of this one, or over a folder on the way to it.
bool isCovered(const Mount& mount, const std::vector<Mount>& mounts)
{
    const auto coveredBy = [&mounts](auto&& covers) { return std::any_of(mounts.begin(), mounts.end(), covers); };
    if (coveredBy([&](const Mount& other) {
            return other.id != mount.id && other.parent == mount.id && other.target == mount.target;
        })) {
        return true;
    }
    const auto way = wayUp(mount, mounts);
    return std::any_of(way.begin(), way.end(), [&](const Mount* level) {
        return coveredBy([level](const Mount& other) {
            return other.parent == level->parent && isBelow(level->target, other.target);
        });
    });
}

// The way to "/" is no way at all, so a root from the network doesn't count.
bool isBehindNetwork(const Mount& mount, const std::vector<Mount>& mounts)
{
    const auto way = wayUp(mount, mounts);
    return std::any_of(way.begin() + 1, way.end(), [&](const Mount* level) {
        return level->isNetwork && level->target != "/" && level->target != mount.target;
    });
}

// The smaller, the better a place to know the volume by.
int rank(const Mount& mount)
{
    if (mount.target == "/") {
        return 0;
    }
    return mount.root == "/" ? 1 : 2;
}

std::string textOr(const char* text, const char* otherwise)
{
    return text != nullptr ? text : otherwise;
}

Mount mountFrom(libmnt_fs* entry)
{
    Mount mount;
    mount.id = mnt_fs_get_id(entry);
    mount.parent = mnt_fs_get_parent_id(entry);
    mount.device = mnt_fs_get_devno(entry);
    mount.root = textOr(mnt_fs_get_root(entry), "/");
    mount.target = textOr(mnt_fs_get_target(entry), "");
    mount.fileSystem = textOr(mnt_fs_get_fstype(entry), "");
    mount.isPseudo = mnt_fs_is_pseudofs(entry) != 0 || contains(layeredTypes, mount.fileSystem);
    mount.isNetwork = mnt_fs_is_netfs(entry) != 0 || contains(moreNetworkTypes, mount.fileSystem) ||
                      isUserSpaceType(mount.fileSystem);
    return mount;
}

struct TableRelease {
    void operator()(libmnt_table* table) const { mnt_unref_table(table); }
};

struct IteratorRelease {
    void operator()(libmnt_iter* iterator) const { mnt_free_iter(iterator); }
};

} // namespace

std::optional<std::vector<Mount>> readMounts(const char* file)
{
    const std::unique_ptr<libmnt_table, TableRelease> table(mnt_new_table_from_file(file));
    const std::unique_ptr<libmnt_iter, IteratorRelease> iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!table || !iterator) {
        return std::nullopt;
    }
    std::vector<Mount> mounts;
    libmnt_fs* entry = nullptr;
    while (mnt_table_next_fs(table.get(), iterator.get(), &entry) == 0) {
        mounts.push_back(mountFrom(entry));
    }
    return mounts;
}

std::vector<LocalVolume> localVolumes(const std::vector<Mount>& mounts)
{
    std::vector<std::vector<const Mount*>> devices;
    for (const Mount& mount : mounts) {
        if (!isLocalVolume(mount) || isCovered(mount, mounts)) {
            continue;
        }
        auto known = std::find_if(devices.begin(), devices.end(),
                                  [&](const auto& device) { return device.front()->device == mount.device; });
        if (known == devices.end()) {
            known = devices.emplace(devices.end());
        }
        known->push_back(&mount);
    }

    std::vector<LocalVolume> volumes;
    for (std::vector<const Mount*>& device : devices) {
        std::stable_sort(device.begin(), device.end(),
                         [](const Mount* left, const Mount* right) { return rank(*left) < rank(*right); });
        LocalVolume& volume = volumes.emplace_back(LocalVolume{device.front()->device, {}});
        for (const Mount* mount : device) {
            volume.mountPoints.push_back({mount->id, mount->target, isBehindNetwork(*mount, mounts)});
        }
    }
    return volumes;
}

} // namespace platform::linux_os
