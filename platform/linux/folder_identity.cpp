#include "platform/linux/folder_identity.h"

#include "platform/linux/descriptor.h"

#include <fcntl.h>

#include <utility>

namespace platform::linux_os {

namespace {

bool isRoot(int folder, int parent)
{
    struct statx here {};
    struct statx above {};
    const unsigned mask = STATX_INO | STATX_MNT_ID; // a folder may be mounted below itself
    if (statx(folder, "", AT_EMPTY_PATH, mask, &here) != 0 || statx(parent, "", AT_EMPTY_PATH, mask, &above) != 0) {
        return true;
    }
    return here.stx_dev_major == above.stx_dev_major && here.stx_dev_minor == above.stx_dev_minor &&
           here.stx_ino == above.stx_ino && here.stx_mnt_id == above.stx_mnt_id;
}

} // namespace

bool isInside(int folder, Identity ancestor)
{
    Descriptor current;
    for (int at = folder;;) {
        struct stat status {};
        if (fstat(at, &status) == 0 && Identity::of(status) == ancestor) {
            return true;
        }
        Descriptor parent(retried([at] { return openat(at, "..", O_PATH | O_DIRECTORY | O_CLOEXEC); }));
        if (!parent || isRoot(at, parent.get())) {
            return false;
        }
        current = std::move(parent);
        at = current.get();
    }
}

} // namespace platform::linux_os
