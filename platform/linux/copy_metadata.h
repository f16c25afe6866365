// What an item is besides its data: owner, extended attributes with access control lists, mode, times.
//
// Kept in that order: a change of owner clears set-id bits and file capabilities, an access list changes the mode, and
// all of them change times. The owner is kept where the process may set it; where it can't, the set-id bit that would
// lend the copy's own owner to everybody is dropped. A file system without owners or modes (FAT) keeps none.
#pragma once

#include "platform/posix/failure.h"

#include <sys/stat.h>
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

// `status`: the source's; `made`: the copy's, with the owner that it has. An entry's folder must be one that nobody
// else can change, for a mode can't be set without following links.
//
// Attributes that take a privilege that the process lacks are left out, and so are all of them where the target's file
// system has none, and one that is too large for it; with `mustFit` the last is a failure. A full file system always
// is.
posix::Failure keepMetadata(const MetadataHolder& source, const MetadataHolder& target, const struct stat& status,
                            const struct stat& made, bool mustFit);

} // namespace platform::linux_os
