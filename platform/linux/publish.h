// How finished work gets its name: in one step, and never in the place of something else.
//
// Thread rule: any thread.
#pragma once

#include <string>

namespace platform::linux_os {

// A name that nothing has: ".folidex-" and 16 random characters.
std::string temporaryName();

// Renames an entry; answers an errno value, EEXIST when the target exists.
//
// Where the file system can't refuse to replace (renameat2(2) answers EINVAL; many FUSE file systems, NFS), anything
// but a folder is linked and then unlinked, which never replaces either. Where there are no hard links, and for
// folders, the target is looked for first: between look and rename somebody else's new item may be replaced, in the
// case of folders an empty folder only (rename(2)).
int renameWithoutReplacing(int fromFolder, const char* from, int toFolder, const char* to);

// Gives an unnamed file (open(2), O_TMPFILE) its name; answers an errno value, EEXIST when the name is taken.
int linkUnnamed(int file, int folder, const char* name);

} // namespace platform::linux_os
