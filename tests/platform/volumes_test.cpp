#include "platform/linux/mount_filter.h"
#include "platform/unicode.h"
#include "platform/volumes.h"
#include "support/child_process.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using folidex::test::inChild;
using folidex::test::ScratchFolder;
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
    EXPECT_EQ(volumesOf("missing.txt"), Volumes{"unreadable"});
}

TEST(VolumeSpace, IsWhatAnOrdinaryUserSees)
{
    const ScratchFolder scratch;
    struct statvfs status;
    ASSERT_EQ(statvfs(scratch.text().c_str(), &status), 0);
    const auto space = platform::volumeSpace(scratch.text16());
    ASSERT_TRUE(space);
    EXPECT_EQ(space->total, static_cast<std::int64_t>(status.f_blocks * status.f_frsize));
    // Others write meanwhile, but not as much as file systems keep for root.
    EXPECT_NEAR(static_cast<double>(space->free), static_cast<double>(status.f_bavail * status.f_frsize), 1e9);
    EXPECT_FALSE(platform::volumeSpace(scratch.text16("nothing")));
}

// "name name …" of the mounted volumes but those that were there before.
std::string newVolumeNames(const std::vector<std::u16string>& before)
{
    std::vector<std::u16string> names = platform::mountedLocalVolumeNames().value();
    for (const std::u16string& name : before) {
        if (const auto known = std::find(names.begin(), names.end(), name); known != names.end()) {
            names.erase(known);
        }
    }
    std::string text;
    for (const std::u16string& name : names) {
        text += (text.empty() ? "" : ", ") + platform::utf8FromUtf16(name).value();
    }
    return text;
}

bool runs(const std::string& command)
{
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

TEST(Volumes, MountedImagesAppearByLabelOrFolder)
{
    const ScratchFolder scratch;
    const std::string folder = scratch.text();
    if (!folidex::test::isRoot() || !runs("cd '" + folder + "' && truncate -s 4M plain labelled && mkfs.ext4 -q plain" +
                                          " && mkfs.ext4 -q -L 'Büro 1' -m 50 labelled && mkdir a b c d")) {
        GTEST_SKIP() << "takes root's rights and mkfs.ext4";
    }
    const std::string found = inChild([&] {
        const auto before = platform::mountedLocalVolumeNames().value();
        folidex::test::leaveMountNamespace();
        if (!runs("cd '" + folder + "' && mount -o loop plain a && mount -o loop labelled b")) {
            return std::string("no loop device");
        }
        std::string text = newVolumeNames(before);

        // The same again, a part of it, a volume of no disk, and one that covers another.
        if (!runs("cd '" + folder + "' && mount --bind a c && mount -t tmpfs none d && mount -t tmpfs none b")) {
            return std::string("no bind mount");
        }
        text += "; " + newVolumeNames(before);

        struct statvfs status;
        if (statvfs((folder + "/c").c_str(), &status) == 0 && status.f_bavail < status.f_bfree) {
            const auto space = platform::volumeSpace(platform::utf16FromUtf8(folder + "/c"));
            text += space->free == static_cast<std::int64_t>(status.f_bavail * status.f_frsize) ? "; as a user" : "; ?";
        }
        return text;
    });
    if (found == "no loop device") {
        GTEST_SKIP() << found;
    }
    EXPECT_EQ(found, "a, Büro 1; a; as a user");
}

TEST(Volumes, NobodyIsHeldByWhatDoesNotAnswer)
{
    ASSERT_TRUE(platform::mountedLocalVolumeNames());
    if (!folidex::test::isRoot()) {
        GTEST_SKIP() << "takes root's rights";
    }
    const ScratchFolder scratch;
    // A FUSE file system whose daemon never reads its first request: whoever asks it anything waits for ever.
    const std::string found = inChild([&] {
        const auto before = platform::mountedLocalVolumeNames().value();
        folidex::test::leaveMountNamespace();
        const int daemon = open("/dev/fuse", O_RDWR | O_CLOEXEC);
        const std::string options = "fd=" + std::to_string(daemon) + ",rootmode=40000,user_id=0,group_id=0";
        if (daemon < 0 || mount("dead", scratch.text().c_str(), "fuse.sshfs", 0, options.c_str()) != 0) {
            return std::string("no FUSE");
        }
        alarm(10);
        return newVolumeNames(before);
    });
    if (found == "no FUSE") {
        GTEST_SKIP() << found;
    }
    EXPECT_EQ(found, "");
}

} // namespace
