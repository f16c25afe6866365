// Which items of a tree are names of one item (hard links), so that a copy of the tree has the same.
#pragma once

#include "platform/posix/identity.h"

#include <sys/stat.h>

#include <string>
#include <unordered_map>

namespace platform::posix {

// Remembers items that have names left to be met; one whose names have all been met is forgotten.
class HardLinks {
public:
    // Makes `name` in the open folder `target` another name of the copy of this item, which must be below the open
    // folder `root`. False where none of its names has been copied yet, it isn't as it was then, or the file system
    // can't link it: then it has to be copied.
    bool link(const struct stat& status, int root, int target, const char* name);

    // An item was copied to `path` ("/a/b", below the root).
    void remember(const struct stat& status, std::string path);

private:
    struct Copied {
        std::string path;
        struct stat status;
        nlink_t left; // names that haven't been met
    };

    std::unordered_map<Identity, Copied, Identity::Hash> copied_;
};

} // namespace platform::posix
