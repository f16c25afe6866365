#include "platform/posix/removal_check.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>

namespace platform::posix {

namespace {

constexpr std::uint64_t keptByAttribute = STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND;

bool mayRemoveOthersEntries()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    if (syscall(SYS_capget, &header, sets.data()) != 0) {
        return true;
    }
    return (sets[CAP_TO_INDEX(CAP_FOWNER)].effective & CAP_TO_MASK(CAP_FOWNER)) != 0;
}

} // namespace

int errorOfRemovingFrom(int folder)
{
    if (faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) != 0) {
        return errno;
    }
    struct statx status {};
    if (statx(folder, "", AT_EMPTY_PATH, STATX_TYPE, &status) != 0) {
        return errno;
    }
    return (status.stx_attributes & keptByAttribute) != 0 ? EPERM : 0;
}

int errorOfRemovingEntry(int folder, const struct stat& folderStatus, const char* name)
{
    struct statx status {};
    if (statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_UID, &status) != 0) {
        return errno;
    }
    if ((status.stx_attributes & keptByAttribute) != 0) {
        return EPERM;
    }
    if ((status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
        return EBUSY;
    }
    const uid_t self = geteuid();
    const bool sticky = (folderStatus.st_mode & S_ISVTX) != 0;
    const bool own = folderStatus.st_uid == self || status.stx_uid == self;
    return sticky && !own && !mayRemoveOthersEntries() ? EPERM : 0;
}

} // namespace platform::posix
