// What stat(2) and statx(2) say about one item.

#include "platform/file_manager.h"
#include "platform/linux/descriptor.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <optional>
#include <string>

namespace platform {

namespace {

using linux_os::retried;

// Nothing mounts because somebody looked, as with stat(2).
constexpr int statFlags = AT_NO_AUTOMOUNT;

// Asks for no more than `mask`, for some file systems have to go far for the rest.
std::optional<struct statx> examine(PathView path, int flags, unsigned int mask)
{
    const std::optional<std::string> bytes = fileSystemRepresentation(path);
    struct statx status;
    if (!bytes || retried([&] { return statx(AT_FDCWD, bytes->c_str(), statFlags | flags, mask, &status); }) != 0) {
        return std::nullopt;
    }
    return status;
}

// The kernel keeps a second before 1970 as the second below and a fraction to add, so dropping the fraction rounds
// towards the past.
UnixTime wholeSeconds(const statx_timestamp& time)
{
    return time.tv_sec;
}

} // namespace

Existence existence(PathView path)
{
    const std::optional<struct statx> status = examine(path, 0, STATX_TYPE);
    return {status.has_value(), status && S_ISDIR(status->stx_mode)};
}

std::optional<Attributes> attributes(PathView path)
{
    const std::optional<struct statx> status =
        examine(path, AT_SYMLINK_NOFOLLOW, STATX_SIZE | STATX_MTIME | STATX_BTIME);
    if (!status) {
        return std::nullopt;
    }
    Attributes attributes;
    attributes.size = status->stx_size;
    attributes.modificationDate = wholeSeconds(status->stx_mtime);
    // Birth times are kept by ext4, XFS and Btrfs, but not by every file system (statx(2), stx_mask).
    if ((status->stx_mask & STATX_BTIME) != 0) {
        attributes.creationDate = wholeSeconds(status->stx_btime);
    }
    return attributes;
}

UnixTime accessTime(PathView path)
{
    const std::optional<struct statx> status = examine(path, 0, STATX_ATIME);
    return status ? wholeSeconds(status->stx_atime) : 0;
}

} // namespace platform
