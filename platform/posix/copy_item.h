// Copies single items, with everything that belongs to them, from and into folders that are open.
//
// Nothing is followed and nothing but a regular file is opened, so an item that others replace while it is copied is a
// failure, not a surprise.
#pragma once

#include "platform/posix/descriptor.h"
#include "platform/posix/failure.h"
#include "platform/posix/source_file.h"

#include <sys/stat.h>

#include <memory>

namespace platform::posix {

struct CopyOptions {
    bool isMove = false;    // the source is to go: what couldn't be removed is refused, and files come to rest first
    bool isDurable = false; // the copy is to be on the disk

    const char* action() const { return isMove ? "move" : "copy"; }
    bool needsRecord() const { return isMove || isDurable; } // of what may have to be removed again
};

// A new file in the open folder.
struct FileTarget {
    int folder;
    const char* name = nullptr; // there, where nothing has it; nullptr for a file without a name (open(2), O_TMPFILE)
    bool mayInherit = false;    // others' access lists, which Linux hands down from the folder and a copy doesn't keep
};

// For the items of one tree, which is made by one user in a folder of his own: remembers from item to item whom new
// ones belong to and what the file systems can't do, and keeps a buffer.
class ItemCopier {
public:
    // `flushesEach`: every file and folder is written to the disk when it is whole.
    ItemCopier(const CopyOptions& options, bool flushesEach);
    ~ItemCopier();
    ItemCopier(const ItemCopier&) = delete;
    ItemCopier& operator=(const ItemCopier&) = delete;

    // Opens a regular file that is to be copied.
    Failure open(int folder, const char* name, OpenFile& file) const;

    // Makes the file with the source's content, holes as holes, owner where permitted, mode, times, flags, extended
    // attributes and access lists. `made` becomes it; it stays empty where no such file can be made. That the file can
    // be closed with success is for the caller to see.
    Failure copyFile(const OpenFile& source, const FileTarget& target, Descriptor& made);

    // A link, FIFO or device into a folder that nobody else can change, for a mode can't be set everywhere without
    // following links. `status`: the source's.
    Failure copySpecial(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                        const struct stat& status) const;

    // The metadata of a folder, from one open folder to another that holds all that it will. `status`: the source's.
    Failure finishFolder(int source, const struct stat& status, int target) const;

private:
    // Each system has its own way: linux/copy_item.cpp, macos/copy_item.cpp.
    Failure makeCopy(const OpenFile& source, const FileTarget& target, Descriptor& made);
    Failure copyMetadata(int source, const struct stat& status, int target) const;
    Failure copySpecialMetadata(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                                const struct stat& status) const;
    struct Memory;

    bool isMove_; // so that an extended attribute that is too large for the target's file system is a failure
    bool flushesEach_;
    std::unique_ptr<Memory> memory_;
};

// An empty file without a name (open(2), O_TMPFILE) in the open folder, mode 0600, for its descriptor's owner to write
// or, with `flags` O_RDWR in place of O_WRONLY, to read too. Empty with errno where there can be none: EOPNOTSUPP,
// EISDIR or EINVAL.
Descriptor makeUnnamed(int folder, int flags);

// Gives such a file its name; returns an errno value, EEXIST when the name is taken.
int linkUnnamed(int file, int folder, const char* name);

} // namespace platform::posix
