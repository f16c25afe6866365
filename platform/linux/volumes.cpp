#include "platform/volumes.h"

#include "platform/linux/mount_filter.h"
#include "platform/posix/descriptor.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <array>
#include <charconv>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

namespace {

using linux_os::LocalVolume;
using linux_os::MountPoint;
using posix::Descriptor;
using posix::openAt;
using posix::retried;

// The mount point's folder; empty when something else is to be seen there by now, or when it doesn't answer. Opened
// as a mere place, and only then asked: so no question goes to a file system that was mounted over it meanwhile.
Descriptor openAnswering(const MountPoint& point)
{
    Descriptor place = openAt(AT_FDCWD, point.path.c_str(), O_PATH);
    struct statx status;
    struct statvfs space;
    if (!place || statx(place.get(), "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_TYPE | STATX_MNT_ID, &status) != 0) {
        return {};
    }
    // Hosts of containers may have a kernel before 5.8, which has no mount ID to compare.
    const bool isAnother =
        (status.stx_mask & STATX_MNT_ID) != 0 && status.stx_mnt_id != static_cast<unsigned int>(point.id);
    if (isAnother || !S_ISDIR(status.stx_mode) || retried([&] { return fstatvfs(place.get(), &space); }) != 0 ||
        space.f_blocks == 0) {
        return {};
    }
    return place;
}

// The label as the file system's driver knows it: ext4 (since Linux 5.17), XFS, Btrfs and others.
std::string labelFromDriver(const Descriptor& place)
{
    std::array<char, FSLABEL_MAX + 1> label{};
    const Descriptor folder = openAt(place.get(), ".", posix::folderItself);
    if (!folder || ioctl(folder.get(), FS_IOC_GETFSLABEL, label.data()) != 0) {
        return {};
    }
    return label.data();
}

// Undoes udev's "\x20" for bytes that aren't safe in its files.
std::string decoded(std::string_view text)
{
    std::string bytes;
    while (!text.empty()) {
        unsigned char byte = 0;
        if (text.starts_with("\\x") && text.size() >= 4 &&
            std::from_chars(text.data() + 2, text.data() + 4, byte, 16).ptr == text.data() + 4) {
            bytes += static_cast<char>(byte);
            text.remove_prefix(4);
        } else {
            bytes += text.front();
            text.remove_prefix(1);
        }
    }
    return bytes;
}

// The label that udev read when the device appeared. Everybody may read udev's notes, and the device isn't touched.
std::string labelFromUdev(dev_t device)
{
    constexpr std::string_view key = "E:ID_FS_LABEL_ENC=";
    std::ifstream notes("/run/udev/data/b" + std::to_string(major(device)) + ":" + std::to_string(minor(device)));
    for (std::string line; std::getline(notes, line);) {
        if (line.starts_with(key)) {
            return decoded(std::string_view(line).substr(key.size()));
        }
    }
    return {};
}

// As a file manager shows it: the label, else the name of the folder where it is mounted.
std::u16string displayName(const LocalVolume& volume, const MountPoint& point, const Descriptor& place)
{
    std::string label = place ? labelFromDriver(place) : std::string();
    if (label.empty()) {
        label = labelFromUdev(volume.device);
    }
    return label.empty() ? lastComponent(utf16FromUtf8(point.path)) : utf16FromUtf8(label);
}

std::optional<std::u16string> nameIfAnswering(const LocalVolume& volume)
{
    for (const MountPoint& point : volume.mountPoints) {
        if (point.isBehindNetwork) {
            return displayName(volume, point, {});
        }
        if (const Descriptor place = openAnswering(point)) {
            return displayName(volume, point, place);
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<std::vector<std::u16string>> mountedLocalVolumeNames()
{
    const auto mounts = linux_os::readMounts("/proc/self/mountinfo");
    if (!mounts) {
        return std::nullopt;
    }
    std::vector<std::u16string> names;
    for (const LocalVolume& volume : linux_os::localVolumes(*mounts)) {
        if (std::optional<std::u16string> name = nameIfAnswering(volume)) {
            names.push_back(std::move(*name));
        }
    }
    return names;
}

std::optional<VolumeSpace> volumeSpace(PathView path)
{
    const std::optional<std::string> bytes = fileSystemRepresentation(path);
    struct statvfs space;
    if (!bytes || retried([&] { return statvfs(bytes->c_str(), &space); }) != 0) {
        return std::nullopt;
    }
    // f_bfree would count the blocks that are kept for root (statvfs(3)).
    return VolumeSpace{static_cast<std::int64_t>(space.f_blocks * space.f_frsize),
                       static_cast<std::int64_t>(space.f_bavail * space.f_frsize)};
}

} // namespace platform
