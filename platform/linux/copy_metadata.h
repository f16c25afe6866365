// What an item is besides its data: owner, extended attributes with access control lists, mode, times.
//
// Kept in that order: a change of owner clears set-id bits and file capabilities, an access list changes the mode, and
// all of them change times. The owner is kept where the process may set it; where it can't, the set-id bit that would
// lend the copy's own owner to everybody is dropped. A file system without owners or modes (FAT) keeps none.
#pragma once

#include "platform/linux/extended_attributes.h"
#include "platform/posix/failure.h"

#include <sys/stat.h>

namespace platform::linux_os {

// `status`: the source's; `made`: the copy's, with the owner that it has; `mustFit`: as for keepExtendedAttributes().
// An entry's folder must be one that nobody else can change, for a mode can't be set without following links.
posix::Failure keepMetadata(const MetadataHolder& source, const MetadataHolder& target, const struct stat& status,
                            const struct stat& made, bool mustFit);

} // namespace platform::linux_os
