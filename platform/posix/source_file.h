// Regular files that are copied from.
#pragma once

#include "platform/posix/descriptor.h"
#include "platform/posix/failure.h"

#include <sys/stat.h>

namespace platform::posix {

struct OpenFile {
    Descriptor descriptor;
    struct stat status {};
};

inline constexpr const char* replacedMeanwhile = "the item was replaced while it was being copied";

// Opens a regular file for reading; anything else under that name is a failure.
Failure openFile(int folder, const char* name, OpenFile& file);

} // namespace platform::posix
