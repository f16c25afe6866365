#include "platform/posix/flush.h"

#include "platform/posix/descriptor.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

int posix::flushFile(int file)
{
    return retried([=] { return fsync(file); }) == 0 ? 0 : errno;
}

int posix::flushFolder(int folder)
{
    if (retried([=] { return fsync(folder); }) != 0 && errno != EINVAL) {
        return errno;
    }
    // XFS flushes a folder with success although it has shut itself down, as it does when its disk fails; it is opening
    // that says so.
    return openAt(folder, ".", folderItself) ? 0 : errno;
}

int posix::flushFileSystem(int item)
{
    return retried([=] { return syncfs(item); }) == 0 ? 0 : errno;
}

// Plain FUSE doesn't pass syncfs(2) on, network file systems don't pass it to their servers.
bool posix::isFlushedAsAWhole(int item)
{
    struct statfs status {};
    if (fstatfs(item, &status) != 0) {
        return false;
    }
    switch (status.f_type) {
    case EXT4_SUPER_MAGIC: // ext2 and ext3 too
    case XFS_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case TMPFS_MAGIC:
        return true;
    default:
        return false;
    }
}

} // namespace platform
