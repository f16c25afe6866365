#include "platform/unicode.h"
#include "platform/volumes.h"
#include "support/child_process.h"
#include "support/scratch_folder.h"
#include "support/surroundings.h"

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
    SKIP_WITHOUT("ext4");
    const ScratchFolder scratch;
    const std::string folder = scratch.text();
    ASSERT_TRUE(runs("cd '" + folder + "' && truncate -s 4M plain labelled && mkfs.ext4 -q plain" +
                     " && mkfs.ext4 -q -L 'Büro 1' -m 50 labelled && mkdir a b c d"));
    const std::string found = inChild([&] {
        const auto before = platform::mountedLocalVolumeNames().value();
        folidex::test::leaveMountNamespace();
        if (!runs("cd '" + folder + "' && mount -o loop plain a && mount -o loop labelled b")) {
            return std::string("no mount of an image");
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
    EXPECT_EQ(found, "a, Büro 1; a; as a user");
}

TEST(Volumes, NobodyIsHeldByWhatDoesNotAnswer)
{
    SKIP_WITHOUT("fuse");
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
        alarm(120);
        return newVolumeNames(before);
    });
    EXPECT_EQ(found, "");
}

} // namespace
