// Whether entries could be removed, asked before a move that has to copy spends its work on them: errno values, 0 when
// nothing is in the way. The value is what holds now; the removal itself may still fail.
//
// Each system has its own way: linux/removal_check.cpp, macos/removal_check.cpp.
#pragma once

#include <sys/stat.h>

namespace platform::posix {

// Whether the folder's entries may change at all: no permission (EACCES), a read-only file system (EROFS), an immutable
// or append-only folder (EPERM).
int errorOfRemovingFrom(int folder);

// Whether one entry may go: immutable and append-only items (EPERM), roots of mounts (EBUSY), others' entries of a
// folder with the sticky bit (EPERM). `folderStatus`: of the folder.
int errorOfRemovingEntry(int folder, const struct stat& folderStatus, const char* name);

} // namespace platform::posix
