#include "platform/posix/access_lists.h"

#include <sys/acl.h>
#include <sys/types.h>

#include <cerrno>

namespace platform::posix {

bool hasAccessList(int item)
{
    const acl_t list = acl_get_fd_np(item, ACL_TYPE_EXTENDED);
    if (list == nullptr) {
        return errno != ENOENT && errno != ENOTSUP && errno != EOPNOTSUPP;
    }
    acl_entry_t entry = nullptr;
    const bool holdsEntries = acl_get_entry(list, ACL_FIRST_ENTRY, &entry) == 0;
    acl_free(list);
    return holdsEntries;
}

bool dropAccessLists(int item)
{
    if (!hasAccessList(item)) {
        return true;
    }
    const acl_t none = acl_init(0);
    const bool isGone = none != nullptr && acl_set_fd_np(item, none, ACL_TYPE_EXTENDED) == 0;
    acl_free(none);
    return isGone;
}

int takeOver(int)
{
    return 0;
}

} // namespace platform::posix
