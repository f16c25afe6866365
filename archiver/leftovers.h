// What a call makes under a name of its own before it is put into place, and what of that a killed call has left.
//
// Such an item has a name that tells this host, ".folidex-archive-", 8 letters of the host, "-" and 16 random ones, and
// is locked (flock(2)) for as long as somebody works on it. So the next call with the same destination knows that
// nobody does, and removes it. Where the file system has no locks it stays.
#pragma once

#include "platform/posix/descriptor.h"

#include <string>
#include <string_view>

namespace archiver {

struct WorkItem {
    platform::posix::Descriptor open; // locked; for writing, or a folder for reading
    std::string name;
};

// Whether the name in the folder is the open item's. Sets errno where that can't be told, else to 0.
bool isNameOf(int folder, const std::string& name, int item);

// Makes an empty file (mode 0600) or a folder (mode 0700), without an access list, in the open folder. Failures: as
// those of writing.
WorkItem makeWorkFile(int folder);
WorkItem makeWorkFolder(int folder);

// A name for such an item, which nothing has, and the lock for one that is made otherwise. Returns false when somebody
// else holds it; where there are no locks it is true.
std::string workName();
bool lockWorkItem(int item);

// Whether the name is one of these, of any host.
bool isWorkName(std::string_view name);

// Removes what killed calls of this user on this host have left in the folder, as far as that goes.
void removeLeftovers(int folder) noexcept;

} // namespace archiver
