#include "platform/posix/access_lists.h"

#include <sys/xattr.h>

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

} // namespace platform::posix
