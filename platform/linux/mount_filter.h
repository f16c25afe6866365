// Which of the mounts in a mountinfo file (proc_pid_mountinfo(5)) are local volumes, decided from the file alone:
// nothing is asked of a file system here, so that a dead server can't hold anybody.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace platform::linux_os {

// One line of the file. Paths are file-system bytes.
struct Mount {
    int id = 0;
    int parent = 0;
    dev_t device = 0;       // the same wherever one file system is mounted
    std::string root;       // what of the file system is shown, "/" for all
    std::string target;     // where
    std::string fileSystem; // its type
    bool isPseudo = false;  // without storage of its own
    bool isNetwork = false; // answers may never come
};

// Where a volume can be seen.
struct MountPoint {
    int id = 0; // of the mount
    std::string path;
    bool isBehindNetwork = false; // the way there leads through a network file system: not to be asked
};

struct LocalVolume {
    dev_t device = 0;
    std::vector<MountPoint> mountPoints; // best first: "/", then whole file systems, then shown parts
};

// The mounts of `file`, such as "/proc/self/mountinfo", in its order; empty when it can't be read.
std::optional<std::vector<Mount>> readMounts(const char* file);

// The local volumes among the mounts, each once, in the order of their first mount. Mounts that others cover are left
// out. "/" counts even when it is what containers and virtual machines have there (overlay, virtiofs, …).
std::vector<LocalVolume> localVolumes(const std::vector<Mount>& mounts);

} // namespace platform::linux_os
