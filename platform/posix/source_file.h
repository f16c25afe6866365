// Regular files that are copied from.
#pragma once

#include "platform/posix/descriptor.h"
#include "platform/posix/failure.h"

#include <sys/stat.h>
#include <sys/types.h>

namespace platform::posix {

struct OpenFile {
    Descriptor descriptor;
    struct stat status {}; // from after it was opened
};

inline constexpr const char* replacedMeanwhile = "the item was replaced while it was being copied";

// Opens a regular file for reading; anything else under that name is a failure. The content of one that is in the cloud
// alone (iCloud Drive) is brought here first.
Failure openFile(int folder, const char* name, OpenFile& file);

// The failure where a copy of so many bytes holds less than the file's size said, unless the file has become shorter
// meanwhile.
Failure requireWhole(const OpenFile& file, off_t copied);

} // namespace platform::posix
