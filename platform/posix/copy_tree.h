// Copies everything below one open folder into another.
#pragma once

#include "platform/posix/copy_item.h"
#include "platform/posix/copy_record.h"
#include "platform/posix/failure.h"

#include <string_view>

namespace platform::posix {

inline constexpr const char* intoItself = "a folder can't be put into itself";

// Where a copy of a folder goes.
struct TreeTarget {
    int folder;            // open and empty, and so that nobody else can get into it until the copy is whole
    std::string_view name; // that it has until then; meeting it in the source is a failure: the copy would hold itself
};

// Copies what is in the folder at `name`, and its metadata last. Files with several names within it (hard links) have
// as many in the copy, as far as the file system can. An entry that has vanished since it was listed is left out. What
// comes into a folder after it has been listed isn't copied. Every file that was written has been closed with success
// in the end. `copied`: filled where the options need it.
Failure copyTree(const CopyOptions& options, int sourceFolder, const char* name, const TreeTarget& target,
                 CopyRecord& copied);

} // namespace platform::posix
