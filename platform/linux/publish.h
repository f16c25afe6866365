// How finished work gets its name, in one step and never in the place of something else, and how it gets to the disk.
//
// Integers that are answered are errno values, 0 for success.
#pragma once

#include <string>

namespace platform::linux_os {

// A name that nothing has: ".folidex-" and 16 random characters.
std::string temporaryName();

// Renames an entry; EEXIST when the target exists.
//
// Where the file system can't refuse to replace (renameat2(2) answers EINVAL; many FUSE file systems, NFS), anything
// but a folder is linked and then unlinked, which never replaces either. Where there are no hard links, and for
// folders, the name is claimed first, by a new empty file or folder of our own that the rename then replaces.
int renameWithoutReplacing(int fromFolder, const char* from, int toFolder, const char* to);

// Takes an item's name away, and gives it back in the end, also to what is left of the item, unless it is gone by then.
class Hiding {
public:
    // `hidden`: a temporary name in the same folder; empty to leave the item its own. The texts must outlive the value.
    Hiding(int folder, const char* name, const std::string& hidden) noexcept;
    ~Hiding();
    Hiding(const Hiding&) = delete;
    Hiding& operator=(const Hiding&) = delete;

    // The item's name now.
    const char* name() const { return isHidden_ ? hidden_ : name_; }

    // The errno value with which it couldn't be hidden; 0 when it is, or was to keep its name.
    int error() const { return error_; }

    void itemIsGone() { isHidden_ = false; }

private:
    int folder_;
    const char* name_;
    const char* hidden_;
    bool isHidden_ = false;
    int error_ = 0;
};

// Gives an unnamed file (open(2), O_TMPFILE) its name; EEXIST when the name is taken.
int linkUnnamed(int file, int folder, const char* name);

// What closing a written file would answer (close(2)), without closing it: file systems that report there what they
// couldn't keep do so for every descriptor that is closed.
int errorOfClosing(int file);

// Whether syncfs(2) writes a whole file system to its disk and tells of errors, which for a tree is quicker than a
// flush of each item. Plain FUSE doesn't pass it on, network file systems don't pass it to their servers.
bool isFlushedAsAWhole(int item);

// The folder's entries to the disk. `folder` is open for reading; file systems that can't flush folders don't need to.
int flushFolder(int folder);

// The same for a folder that is open for paths relative to it only (open(2), O_PATH); `inside`, any open item of its
// file system, serves where the folder can't be read. Without one (-1) and without permission to read the folder, all
// is written that the system holds (sync(2)), which tells of no errors.
int flushEntries(int folder, int inside);

} // namespace platform::linux_os
