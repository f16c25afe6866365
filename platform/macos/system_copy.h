// The system's own copying of single items, with everything that belongs to them: on a Mac copyfile(3) and
// clonefile(2).
#pragma once

#include "platform/posix/descriptor.h"
#include "platform/posix/failure.h"

#include <sys/stat.h>

namespace platform::macos {

// Has the content of a file brought here that is in the cloud alone (iCloud Drive), and `status` anew: reading it
// changes its flags and its time of last change. Returns an errno value.
int materialize(int file, struct stat& status);

// Makes the file `name` in the open folder, where nothing has that name, of the open regular file `source`: content
// with its holes, owner where permitted, mode, times, flags, extended attributes, access control list. `status`: the
// source's, from after it was opened. `made` becomes the new file. Content that ends early is no failure.
posix::Failure copyFile(int source, const struct stat& status, int folder, const char* name, posix::Descriptor& made);

// The same, less the content, from one open folder to another.
posix::Failure copyFolderMetadata(int source, const struct stat& status, int target);

// The same for a link, a FIFO or a device, by their names in open folders.
posix::Failure copySpecialMetadata(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                                   const struct stat& status);

} // namespace platform::macos
