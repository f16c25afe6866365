// Plain POSIX around the frameworks' copying and removing: what is settled before they are let at an item, for they
// would follow, replace or empty what they were not meant to, and how finished work gets its name and to the disk.
//
// Paths are file-system bytes without trailing slashes. `action` completes "could not …" in a failure's description: a
// bare verb. Integers that are answered are errno values, 0 for success.
#pragma once

#include "platform/file_manager.h"
#include "platform/outcome.h"
#include "platform/path_text.h"

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace platform::macos {

struct Item {
    std::string path;
    struct stat status {}; // its own, not that of what a link leads to
};

Outcome posixFailure(std::string_view action, const std::string& path, int error);

// Finds an item that is to be copied. With a slash at its end a path names folders and links to folders only
// (POSIX.1-2017, 4.13).
Outcome findItem(std::string_view action, PathView path, Item& item);

// The same for an item that is to leave its place, which no folder does by its own "." or "..".
Outcome findRemovableItem(std::string_view action, PathView path, Item& item);

// Settles where `source` goes: a folder that is there and isn't part of the source, and a name that isn't taken, unless
// what has it is to be replaced.
Outcome findTarget(std::string_view action, const Item& source, PathView path, Existing existing, std::string& target);

// A name in the same folder that nothing has: ".folidex-" and 16 random characters.
std::string temporaryNameBeside(const std::string& path);

// Renames without replacing anything; paths are relative to open folders, or to AT_FDCWD. EEXIST when the target
// exists.
//
// Where the file system can't refuse to replace (exFAT, SMB), anything but a folder is linked and then unlinked, which
// never replaces either. Where there are no hard links, and for folders, the name is claimed first, by a new empty file
// or folder of our own that the rename then replaces.
int renameExclusively(int fromFolder, const char* from, int toFolder, const char* to);

// Gives finished work its name. A Mac asks for a rename whether the item may be deleted and, of a folder, whether it
// may be written to: what forbids that (the lock, an access control list, the mode) is taken off, for this moment for
// everybody else's rights too, and put back under the new name.
int publish(const std::string& temporary, const std::string& target);

// Takes off an item what keeps its owner from removing it or what is in it, as far as that goes. `name`: in the open
// folder, or a path with AT_FDCWD. A link itself is meant, not what it leads to.
void unlock(int folder, const char* name);

// A file, folder or link: what a file manager copies by itself. Reading a FIFO would wait for a writer, and a device
// has no end.
inline bool isOrdinary(mode_t mode)
{
    return S_ISREG(mode) || S_ISDIR(mode) || S_ISLNK(mode);
}

// Makes a FIFO or device like the one described, with its owner where permitted, mode and times. ENOTSUP for anything
// else.
int makeSpecialFile(const std::string& path, const struct stat& original);

// Waits until a file, or of a folder its whole volume, is on the disk, as far as its file system can tell.
int flushItem(const std::string& path);

// The same for the folder that holds the item, and so for the item's name.
int flushName(const std::string& path);

} // namespace platform::macos
