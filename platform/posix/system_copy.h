// The system's own copying of single items, with everything that belongs to them.
//
// Each system has its own way: linux/system_copy.cpp, macos/system_copy.cpp.
#pragma once

#include "platform/posix/descriptor.h"
#include "platform/posix/failure.h"
#include "platform/posix/source_file.h"

#include <sys/stat.h>

#include <memory>

namespace platform::posix {

// A new file in the open folder.
struct FileTarget {
    int folder;
    const char* name = nullptr; // there, where nothing has it; nullptr for a file without a name (open(2), O_TMPFILE)
    bool mayInherit = false;    // others' access lists, which Linux hands down from the folder and a copy doesn't keep
};

// For the items of one tree, which is made by one user in a folder of his own: remembers from item to item whom new
// ones belong to and what the file systems can't do, and keeps a buffer.
class SystemCopy {
public:
    // `mustFit`: an extended attribute that is too large for the target's file system is a failure, not left out.
    explicit SystemCopy(bool mustFit);
    ~SystemCopy();
    SystemCopy(const SystemCopy&) = delete;
    SystemCopy& operator=(const SystemCopy&) = delete;

    // Makes the file with the source's content, holes as holes, owner where permitted, mode, times, flags, extended
    // attributes and access lists. `made` becomes it; it stays empty where no such file can be made, with EOPNOTSUPP,
    // EISDIR or EINVAL where the system has no files without a name.
    Failure copyFile(const OpenFile& source, const FileTarget& target, Descriptor& made);

    // The same, less the content, from one open file or folder to another. `status`: the source's.
    Failure copyMetadata(int source, const struct stat& status, int target) const;

    // The same for a link, a FIFO or a device. The target's folder must be one that nobody else can change, for a mode
    // can't be set everywhere without following links.
    Failure copySpecialMetadata(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                                const struct stat& status) const;

private:
    struct Memory;

    std::unique_ptr<Memory> memory_;
};

// An empty file without a name (open(2), O_TMPFILE) in the open folder, mode 0600, for its descriptor's owner to write
// or, with `flags` O_RDWR in place of O_WRONLY, to read too. Empty with errno where there can be none: EOPNOTSUPP,
// EISDIR or EINVAL.
Descriptor makeUnnamed(int folder, int flags);

// Gives such a file its name; returns an errno value, EEXIST when the name is taken.
int linkUnnamed(int file, int folder, const char* name);

} // namespace platform::posix
