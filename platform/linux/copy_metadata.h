// What an item is besides its data: owner, extended attributes with access control lists, mode, times.
//
// Kept in that order: a change of owner clears set-id bits and file capabilities, an access list changes the mode, and
// all of them change times. The owner is kept where the process may set it; where it can't, the set-id bit that would
// lend the copy's own owner to everybody is dropped. A file system without owners or modes (FAT) keeps none.
#pragma once

#include "platform/posix/failure.h"

#include <sys/stat.h>
#include <sys/types.h>

namespace platform::linux_os {

struct Owner {
    uid_t user = 0;
    gid_t group = 0;

    static Owner of(const struct stat& status) { return {status.st_uid, status.st_gid}; }
    bool operator==(const Owner&) const = default;
};

// Of an open file or folder. `status`: the source's; `current`: whom the copy belongs to as it was made; `mustFit`: as
// for keepExtendedAttributes().
posix::Failure keepMetadata(int source, int target, const struct stat& status, Owner current, bool mustFit);

// Of an entry that can't be opened without side effects: a link, a FIFO, a device. The target's folder must be one that
// nobody else can change, for a mode can't be set without following links.
posix::Failure keepEntryMetadata(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                                 const struct stat& status);

} // namespace platform::linux_os
