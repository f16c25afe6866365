// Extended attributes, access control lists among them (xattr(7), acl(5)).
#pragma once

#include "platform/posix/failure.h"

#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <string>

namespace platform::linux_os {

// Where the thread's open files are: not those of the process, for a thread can have descriptors of its own
// (unshare(2), CLONE_FILES).
inline constexpr const char* ownDescriptors = "/proc/thread-self/fd/";

// An item whose metadata are read or written: an open file or folder, or, for what can't be opened without side effects
// (links, FIFOs, devices), an entry of an open folder, which is never followed. Its attributes are reached through
// /proc.
class MetadataHolder {
public:
    explicit MetadataHolder(int descriptor) : descriptor_(descriptor) {}
    MetadataHolder(int folder, const char* name) : descriptor_(folder), name_(name) {}

    // As fchown(2), fchmod(2), futimens(3). The mode isn't for links, which have none of their own.
    int changeOwner(uid_t user, gid_t group) const;
    int changeMode(mode_t mode) const;
    int changeTimes(const timespec* times) const;

    // As flistxattr(2), fgetxattr(2), fsetxattr(2).
    ssize_t list(char* names, std::size_t size) const;
    ssize_t get(const char* name, void* value, std::size_t size) const;
    int set(const char* name, const void* value, std::size_t size) const;

    // Whether so many bytes are free on the item's file system.
    bool hasRoomFor(std::size_t size) const;

private:
    std::string path() const;

    int descriptor_ = -1;
    const char* name_ = nullptr; // of an entry
};

// Sets every attribute of `source` on `target`. What takes a privilege that the process lacks is left out, and so are
// all attributes where the target's file system has none, and one that is too large for it; with `mustFit` the last is
// a failure. A full file system always is. When an access list can't be kept, `mode` loses the rights that its group
// bits then would give to the owning group alone.
posix::Failure keepExtendedAttributes(const MetadataHolder& source, const MetadataHolder& target, mode_t& mode,
                                      bool mustFit);

} // namespace platform::linux_os
