#include "platform/posix/removal_check.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace platform::posix {

int errorOfRemovingFrom([[maybe_unused]] int folder)
{
#ifdef __APPLE__
    return 0; // is asked of each entry
#else
    return faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
#endif
}

int errorOfRemovingEntry(int folder, const struct stat& folderStatus, const char* name)
{
    struct stat status {};
    if (fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    if (status.st_dev != folderStatus.st_dev) {
        return EBUSY;
    }
#ifdef __APPLE__
    // Asks for everything at once: locks, lists, the folder's permissions, sticky bit (access(2)). Of a link it would
    // ask what that leads to.
    if (!S_ISLNK(status.st_mode) && faccessat(folder, name, _DELETE_OK, AT_EACCESS) != 0) {
        return errno;
    }
#endif
    return 0;
}

} // namespace platform::posix
