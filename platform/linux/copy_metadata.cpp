#include "platform/linux/copy_metadata.h"

#include "platform/linux/extended_attributes.h"
#include "platform/posix/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

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

// Returns the mode that the copy may have. `change(user, group)` is a chown(2) of the copy.
template <typename Change>
Failure keepOwner(const struct stat& status, Owner current, mode_t& mode, Change&& change)
{
    const Owner wanted = Owner::of(status);
    if (wanted == current || change(wanted.user, wanted.group) == 0) {
        return {};
    }
    if (isFailure(errno)) {
        return Failure::ofTarget(errno);
    }
    if (wanted.user != current.user) {
        mode &= ~mode_t{S_ISUID};
    }
    if (wanted.group != current.group && change(sameUser, wanted.group) != 0) {
        mode &= ~mode_t{S_ISGID};
    }
    return {};
}

std::array<timespec, 2> timesOf(const struct stat& status)
{
    return {status.st_atim, status.st_mtim};
}

} // namespace

Failure keepMetadata(int source, int target, const struct stat& status, Owner current, bool mustFit)
{
    mode_t mode = status.st_mode & modeBits;
    const auto changeOwner = [target](uid_t user, gid_t group) { return fchown(target, user, group); };
    if (Failure failed = keepOwner(status, current, mode, changeOwner)) {
        return failed;
    }
    if (Failure failed = keepExtendedAttributes(AttributeHolder(source), AttributeHolder(target), mode, mustFit)) {
        return failed;
    }
    if (fchmod(target, mode) != 0 && isFailure(errno)) {
        return Failure::ofTarget(errno);
    }
    if (futimens(target, timesOf(status).data()) != 0 && isFailure(errno)) {
        return Failure::ofTarget(errno);
    }
    return {};
}

Failure keepEntryMetadata(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                          const struct stat& status)
{
    struct stat made {};
    if (fstatat(targetFolder, targetName, &made, AT_SYMLINK_NOFOLLOW) != 0) {
        return Failure::ofTarget(errno);
    }
    mode_t mode = status.st_mode & modeBits;
    const auto changeOwner = [=](uid_t user, gid_t group) {
        return fchownat(targetFolder, targetName, user, group, AT_SYMLINK_NOFOLLOW);
    };
    if (Failure failed = keepOwner(status, Owner::of(made), mode, changeOwner)) {
        return failed;
    }
    if (Failure failed = keepExtendedAttributes(AttributeHolder(sourceFolder, sourceName),
                                                AttributeHolder(targetFolder, targetName), mode, false)) {
        return failed;
    }
    // A link has no mode of its own.
    if (!S_ISLNK(status.st_mode) && fchmodat(targetFolder, targetName, mode, 0) != 0 && isFailure(errno)) {
        return Failure::ofTarget(errno);
    }
    if (utimensat(targetFolder, targetName, timesOf(status).data(), AT_SYMLINK_NOFOLLOW) != 0 && isFailure(errno)) {
        return Failure::ofTarget(errno);
    }
    return {};
}

} // namespace platform::linux_os
