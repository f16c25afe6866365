#include "platform/linux/copy_metadata.h"

#include <fcntl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

namespace platform::linux_os {

using posix::Failure;

std::string MetadataHolder::path() const
{
    return ownDescriptors + std::to_string(descriptor_) + "/" + name_;
}

int MetadataHolder::changeOwner(uid_t user, gid_t group) const
{
    return name_ == nullptr ? fchown(descriptor_, user, group)
                            : fchownat(descriptor_, name_, user, group, AT_SYMLINK_NOFOLLOW);
}

int MetadataHolder::changeMode(mode_t mode) const
{
    return name_ == nullptr ? fchmod(descriptor_, mode) : fchmodat(descriptor_, name_, mode, 0);
}

int MetadataHolder::changeTimes(const timespec* times) const
{
    return name_ == nullptr ? futimens(descriptor_, times) : utimensat(descriptor_, name_, times, AT_SYMLINK_NOFOLLOW);
}

ssize_t MetadataHolder::list(char* names, std::size_t size) const
{
    return name_ == nullptr ? flistxattr(descriptor_, names, size) : llistxattr(path().c_str(), names, size);
}

ssize_t MetadataHolder::get(const char* name, void* value, std::size_t size) const
{
    return name_ == nullptr ? fgetxattr(descriptor_, name, value, size) : lgetxattr(path().c_str(), name, value, size);
}

int MetadataHolder::set(const char* name, const void* value, std::size_t size) const
{
    return name_ == nullptr ? fsetxattr(descriptor_, name, value, size, 0)
                            : lsetxattr(path().c_str(), name, value, size, 0);
}

// ENOSPC says of a full disk and, on ext4, of a value that is too large.
bool MetadataHolder::hasRoomFor(std::size_t size) const
{
    struct statvfs space {};
    constexpr std::size_t reserve = std::size_t{1} << 20;
    return name_ == nullptr && fstatvfs(descriptor_, &space) == 0 &&
           space.f_bavail > (size + reserve) / std::max<std::size_t>(space.f_frsize, 1);
}

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

constexpr const char* accessList = "system.posix_acl_access";

// ext4 keeps an item's attributes in a block, of 1 KiB at least.
constexpr std::size_t certainToFit = 900;

// Tags and rights of <linux/posix_acl.h>, which isn't for programs.
constexpr unsigned ownerGroupTag = 0x04;
constexpr unsigned maskTag = 0x10;

unsigned littleEndian(const unsigned char* bytes)
{
    return bytes[0] | static_cast<unsigned>(bytes[1]) << 8;
}

// With an access list the mode's group bits are the list's mask, not the owning group's rights. Without the list they
// would be, so they shrink to what the list gives that group.
mode_t withoutList(mode_t mode, const std::vector<char>& list)
{
    unsigned group = 07;
    unsigned mask = 07;
    for (std::size_t at = sizeof(posix_acl_xattr_header); at + sizeof(posix_acl_xattr_entry) <= list.size();
         at += sizeof(posix_acl_xattr_entry)) {
        const auto* entry = reinterpret_cast<const unsigned char*>(list.data() + at);
        if (littleEndian(entry) == ownerGroupTag) {
            group = littleEndian(entry + 2);
        } else if (littleEndian(entry) == maskTag) {
            mask = littleEndian(entry + 2);
        }
    }
    const mode_t groupBits = (group & mask & 07U) << 3;
    return (mode & ~mode_t{S_IRWXG}) | (mode & groupBits);
}

bool isFailureOf(std::string_view name, int error)
{
    if (error == ENOTSUP) {
        return false;
    }
    const bool ordinary = name.starts_with("user.");
    return ordinary || (error != EPERM && error != EACCES && error != EINVAL);
}

// All names, each with its zero; empty when there are none or the file system has no attributes.
Failure readNames(const MetadataHolder& source, std::vector<char>& names)
{
    std::array<char, 512> small{};
    ssize_t size = source.list(small.data(), small.size());
    if (size > 0) {
        names.assign(small.begin(), small.begin() + size);
        return {};
    }
    while (size < 0 && errno == ERANGE) {
        names.resize(names.empty() ? std::size_t{64} * 1024 : names.size() * 2);
        size = source.list(names.data(), names.size());
    }
    if (size < 0 && errno != ENOTSUP && errno != ENOENT && errno != EPERM) {
        return Failure::ofSource(errno);
    }
    names.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return {};
}

// False with errno when the value can't be read.
bool readValue(const MetadataHolder& source, const char* name, std::vector<char>& value)
{
    value.resize(1024);
    for (;;) {
        const ssize_t size = source.get(name, value.data(), value.size());
        if (size >= 0) {
            value.resize(static_cast<std::size_t>(size));
            return true;
        }
        if (errno != ERANGE) {
            return false;
        }
        value.resize(value.size() * 8);
    }
}

// Every attribute of the source, access lists among them (xattr(7), acl(5)). When an access list can't be kept, `mode`
// loses the rights that its group bits then would give to the owning group alone.
Failure keepExtendedAttributes(const MetadataHolder& source, const MetadataHolder& target, mode_t& mode, bool mustFit)
{
    std::vector<char> names;
    if (Failure failed = readNames(source, names)) {
        return failed;
    }
    std::vector<char> value;
    std::size_t total = 0; // of names and values
    for (std::size_t at = 0; at < names.size(); at += std::strlen(names.data() + at) + 1) {
        const char* name = names.data() + at;
        if (!readValue(source, name, value)) {
            if (errno != ENODATA && isFailureOf(name, errno)) {
                return Failure::ofSource(errno);
            }
            continue;
        }
        total += std::strlen(name) + value.size();
        if (target.set(name, value.data(), value.size()) == 0) {
            continue;
        }
        const int error = errno;
        const bool isTooLarge = error == E2BIG || (error == ENOSPC && total > certainToFit && target.hasRoomFor(total));
        if (isTooLarge && mustFit) {
            return Failure::because("an extended attribute is too large for the file system of the target");
        }
        if (!isTooLarge && isFailureOf(name, error)) {
            return Failure::ofTarget(error);
        }
        if (std::string_view(name) == accessList) {
            mode = withoutList(mode, value);
        }
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
