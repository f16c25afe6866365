// Which item an item is, whatever path led to it.
//
// removalTakesAway() of platform/file_manager.h is kept here, for both systems.
#pragma once

#include "platform/path_text.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <optional>

namespace platform::posix {

struct Identity {
    dev_t device = 0;
    ino_t inode = 0;

    static Identity of(const struct stat& status) { return {status.st_dev, status.st_ino}; }
    bool operator==(const Identity&) const = default;

    struct Hash {
        std::size_t operator()(const Identity& identity) const { return identity.inode; }
    };
};

// Whether the open folder is `ancestor` or lies anywhere below it, by the folders that hold it, not by any path's text.
// Empty when a folder above can't be examined.
std::optional<bool> isInside(int folder, Identity ancestor);

// Whether something is at `path`, links followed, by opening it where it can be opened without side effects: what has
// gone by another way, such as a mount of the same folder over a network, is there in a cache for some time.
bool canBeReached(PathView path);

} // namespace platform::posix
