// Copies an item, a folder with everything in it, to a name that nothing has.
//
// Nothing is followed and nothing but a regular file is opened, so an entry that others replace while it is copied is a
// failure, not a surprise. Every file that was written has been closed with success in the end. Files of one tree that
// are one file by several names are so again in the copy, where its file system has hard links.
#pragma once

#include "platform/posix/copy_record.h"
#include "platform/posix/failure.h"

#include <string>

namespace platform::macos {

struct CopyOptions {
    bool isMove = false;    // the source is to go: what couldn't be removed is refused, and so is what ends early
    bool isDurable = false; // the copy is to be on the disk

    const char* action() const { return isMove ? "move" : "copy"; }
    bool needsRecord() const { return isMove || isDurable; } // of what may have to be removed again
};

inline constexpr const char* intoItself = "a folder can't be put into itself";

// `sourceFolder`, `targetFolder`: open. An entry that has vanished since it was listed is left out, but fails a move.
// `copied`: what was found in the source, where the options need it.
posix::Failure copyTree(const CopyOptions& options, int sourceFolder, const char* sourceName, int targetFolder,
                        const std::string& targetName, posix::CopyRecord& copied);

// What stands in the way of removing an entry of an open folder: an errno value, 0 when nothing can be seen.
int errorOfRemoving(int folder, const char* name, mode_t mode);

} // namespace platform::macos
