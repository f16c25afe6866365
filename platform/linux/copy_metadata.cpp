#include "platform/linux/copy_metadata.h"

#include <array>
#include <cerrno>
#include <ctime>

namespace platform::linux_os {

using posix::Failure;

namespace {

constexpr mode_t modeBits = 07777;

constexpr uid_t sameUser = static_cast<uid_t>(-1);

// EPERM: no privilege, or a file system without owners or modes. EINVAL: an owner unknown in this user namespace.
bool isFailure(int error)
{
    return error != EPERM && error != EACCES && error != EINVAL && error != ENOTSUP && error != ENOSYS;
}

// `mode` becomes the one that the copy may have.
Failure keepOwner(const MetadataHolder& target, const struct stat& wanted, const struct stat& made, mode_t& mode)
{
    const bool hasUser = wanted.st_uid == made.st_uid;
    const bool hasGroup = wanted.st_gid == made.st_gid;
    if ((hasUser && hasGroup) || target.changeOwner(wanted.st_uid, wanted.st_gid) == 0) {
        return {};
    }
    if (isFailure(errno)) {
        return Failure::ofTarget(errno);
    }
    if (!hasUser) {
        mode &= ~mode_t{S_ISUID};
    }
    if (!hasGroup && target.changeOwner(sameUser, wanted.st_gid) != 0) {
        mode &= ~mode_t{S_ISGID};
    }
    return {};
}

} // namespace

Failure keepMetadata(const MetadataHolder& source, const MetadataHolder& target, const struct stat& status,
                     const struct stat& made, bool mustFit)
{
    mode_t mode = status.st_mode & modeBits;
    if (Failure failed = keepOwner(target, status, made, mode)) {
        return failed;
    }
    if (Failure failed = keepExtendedAttributes(source, target, mode, mustFit)) {
        return failed;
    }
    if (!S_ISLNK(status.st_mode) && target.changeMode(mode) != 0 && isFailure(errno)) {
        return Failure::ofTarget(errno);
    }
    const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
    return target.changeTimes(times.data()) != 0 && isFailure(errno) ? Failure::ofTarget(errno) : Failure{};
}

} // namespace platform::linux_os
