#include "platform/linux/mount_filter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using platform::linux_os::LocalVolume;

// Each volume's mount points, the ones behind a network file system in brackets.
std::vector<std::string> volumesOf(const std::string& mountinfo)
{
    const auto mounts = platform::linux_os::readMounts((MOUNTINFO_FOLDER "/" + mountinfo).c_str());
    if (!mounts) {
        return {"unreadable"};
    }
    std::vector<std::string> volumes;
    for (const LocalVolume& volume : platform::linux_os::localVolumes(*mounts)) {
        std::string& line = volumes.emplace_back();
        for (const auto& point : volume.mountPoints) {
            line += line.empty() ? "" : ", ";
            line += point.isBehindNetwork ? "[" + point.path + "]" : point.path;
        }
    }
    return volumes;
}

using Volumes = std::vector<std::string>;

TEST(MountFilter, FindsTheLocalVolumesOfRecordedSystems)
{
    EXPECT_EQ(volumesOf("server.txt"),
              (Volumes{"/", "/boot", "/boot/efi", "/Volumes/Customer Data, /srv/exports", "/media/stick"}));
    EXPECT_EQ(volumesOf("container.txt"), (Volumes{"/", "/etc/resolv.conf, /etc/hostname", "/databases"}));
    EXPECT_EQ(volumesOf("rootless.txt"), Volumes{"/"});
    EXPECT_EQ(volumesOf("subvolumes.txt"), (Volumes{"/, /home", "/tank", "/tank/solutions", "/mnt/whole, /mnt/part"}));
    EXPECT_EQ(volumesOf("covered.txt"), (Volumes{"/", "/data", "/mnt2", "[/mnt/scratch]"}));
    EXPECT_EQ(volumesOf("circle.txt"), (Volumes{"/", "/data", "/data/more"}));
    EXPECT_EQ(volumesOf("missing.txt"), Volumes{"unreadable"});
}

} // namespace
