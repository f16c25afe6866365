#include "platform/posix/flush.h"

#include "platform/posix/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>

namespace platform {

namespace {

// "Can't" is no failure: a file system without flushes has none outstanding that a process could wait for.
bool cannotBeAsked(int error)
{
    return error == ENOTSUP || error == ENOTTY || error == EINVAL;
}

} // namespace

int posix::flushFile(int file)
{
    if (retried([=] { return fcntl(file, F_FULLFSYNC); }) != -1) {
        return 0;
    }
    if (!cannotBeAsked(errno)) {
        return errno;
    }
    return retried([=] { return fsync(file); }) == 0 || cannotBeAsked(errno) ? 0 : errno;
}

int posix::flushFolder(int folder)
{
    return flushFile(folder);
}

int posix::flushFileSystem(int item)
{
    std::array<char, PATH_MAX> path{};
    if (fcntl(item, F_GETPATH, path.data()) == -1) {
        return errno;
    }
    // Returns the error's number, and errno is what it was.
    int error = sync_volume_np(path.data(), SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT);
    if (cannotBeAsked(error)) {
        error = sync_volume_np(path.data(), SYNC_VOLUME_WAIT);
    }
    return cannotBeAsked(error) ? 0 : error;
}

bool posix::isFlushedAsAWhole(int)
{
    return true;
}

} // namespace platform
