// What is made of any list of mounts that libmount reads.
#include "fuzz/target.h"

#include "platform/linux/mount_filter.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <set>

namespace {

using platform::linux_os::LocalVolume;
using platform::linux_os::Mount;
using platform::linux_os::MountPoint;

// A file in memory, known by its path in /proc.
class MemoryFile {
public:
    explicit MemoryFile(std::string_view content) : descriptor_(::memfd_create("mountinfo", MFD_CLOEXEC))
    {
        FUZZ_CHECK(descriptor_ >= 0 &&
                   ::write(descriptor_, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    }
    ~MemoryFile() { ::close(descriptor_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

void checkVolumes(const std::vector<Mount>& mounts)
{
    std::set<dev_t> devices;
    for (const LocalVolume& volume : platform::linux_os::localVolumes(mounts)) {
        FUZZ_CHECK(devices.insert(volume.device).second && !volume.mountPoints.empty());
        int lastRank = 0;
        for (const MountPoint& point : volume.mountPoints) {
            const auto mount = std::find_if(mounts.begin(), mounts.end(), [&](const Mount& other) {
                return other.id == point.id && other.target == point.path && other.device == volume.device &&
                       (other.target == "/" || (!other.isPseudo && !other.isNetwork));
            });
            FUZZ_CHECK(mount != mounts.end());
            FUZZ_CHECK(point.path == "/" || std::none_of(mounts.begin(), mounts.end(), [&](const Mount& above) {
                           return above.id != point.id && above.parent == point.id && above.target == point.path;
                       }));
            const int rank = point.path == "/" ? 0 : 1;
            FUZZ_CHECK(lastRank <= rank);
            lastRank = rank;
        }
    }
}

} // namespace

void fuzz::test(std::string_view input)
{
    const MemoryFile file(input);
    if (const auto mounts = platform::linux_os::readMounts(file.path().c_str())) {
        checkVolumes(*mounts);
    }
}
