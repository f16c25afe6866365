#include "platform/linux/folder_identity.h"

#include "platform/linux/descriptor.h"

#include <fcntl.h>

#include <utility>

namespace platform::linux_os {

namespace {

// Nothing when that can't be seen.
std::optional<bool> isRoot(int folder, int parent)
{
    struct statx here {};
    struct statx above {};
    const unsigned mask = STATX_INO | STATX_MNT_ID; // a folder may be mounted below itself
    if (statx(folder, "", AT_EMPTY_PATH, mask, &here) != 0 || statx(parent, "", AT_EMPTY_PATH, mask, &above) != 0) {
        return std::nullopt;
    }
    return here.stx_dev_major == above.stx_dev_major && here.stx_dev_minor == above.stx_dev_minor &&
           here.stx_ino == above.stx_ino && here.stx_mnt_id == above.stx_mnt_id;
}

} // namespace

std::optional<bool> isInside(int folder, Identity ancestor)
{
    Descriptor current;
    for (int at = folder;;) {
        struct stat status {};
        if (fstat(at, &status) != 0) {
            return std::nullopt;
        }
        if (Identity::of(status) == ancestor) {
            return true;
        }
        Descriptor parent(retried([at] { return openat(at, "..", O_PATH | O_DIRECTORY | O_CLOEXEC); }));
        const std::optional<bool> isTop = parent ? isRoot(at, parent.get()) : std::nullopt;
        if (!isTop) {
            return std::nullopt;
        }
        if (*isTop) {
            return false;
        }
        current = std::move(parent);
        at = current.get();
    }
}

} // namespace platform::linux_os
