// Copies single items from and into folders that are open.
//
// Nothing is followed and nothing but a regular file is opened, so an item that others replace while it is copied is a
// failure, not a surprise.
#pragma once

#include "platform/posix/descriptor.h"
#include "platform/posix/failure.h"
#include "platform/posix/source_file.h"
#include "platform/posix/system_copy.h"

#include <sys/stat.h>

namespace platform::posix {

struct CopyOptions {
    bool isMove = false;    // the source is to go: what couldn't be removed is refused, and files come to rest first
    bool isDurable = false; // the copy is to be on the disk

    const char* action() const { return isMove ? "move" : "copy"; }
    bool needsRecord() const { return isMove || isDurable; } // of what may have to be removed again
};

class ItemCopier {
public:
    // `flushesEach`: every file and folder is written to the disk when it is whole.
    ItemCopier(const CopyOptions& options, bool flushesEach)
        : isMove_(options.isMove), flushesEach_(flushesEach), system_(options.isMove)
    {
    }

    // Opens a regular file that is to be copied.
    Failure open(int folder, const char* name, OpenFile& file) const;

    // As SystemCopy::copyFile(). That the file can be closed with success is for the caller to see.
    Failure copyFile(const OpenFile& source, const FileTarget& target, Descriptor& made);

    // A link, FIFO or device into a folder that nobody else can change. `status`: the source's.
    Failure copySpecial(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                        const struct stat& status) const;

    // The metadata of a folder, from one open folder to another that holds all that it will. `status`: the source's.
    Failure finishFolder(int source, const struct stat& status, int target) const;

private:
    bool isMove_;
    bool flushesEach_;
    SystemCopy system_;
};

} // namespace platform::posix
