#include "platform/posix/access_lists.h"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>

namespace platform::posix {

namespace {

constexpr const char* accessList = "system.posix_acl_access";
constexpr const char* defaultList = "system.posix_acl_default"; // for what is made in a folder

// Usually there is none (ENODATA), and some file systems know none.
bool saysThereIsNone(int error)
{
    return error == ENODATA || error == ENOTSUP || error == ENOSYS;
}

} // namespace

bool hasAccessList(int item)
{
    return fgetxattr(item, accessList, nullptr, 0) >= 0 || !saysThereIsNone(errno);
}

bool dropAccessLists(int item)
{
    bool areGone = true;
    for (const char* list : {accessList, defaultList}) {
        // EACCES: only folders have a list for what is made in them.
        if (fremovexattr(item, list) != 0 && !saysThereIsNone(errno) && errno != EACCES) {
            areGone = false;
        }
    }
    return areGone;
}

// A default access list may have left the owner without rights; the group then becomes the one that entries get, for
// changing the mode can cost the set-group-ID bit.
int takeOver(int folder)
{
    struct stat status {};
    dropAccessLists(folder);
    if (fstat(folder, &status) != 0) {
        return errno;
    }
    const bool isOpen =
        (status.st_mode & S_IRWXU) == S_IRWXU || (fchmod(folder, (status.st_mode & 07777) | S_IRWXU) == 0 &&
                                                  fchown(folder, static_cast<uid_t>(-1), getegid()) == 0);
    return isOpen ? 0 : errno;
}

} // namespace platform::posix
