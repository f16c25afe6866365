// Copies what is in open folders: single entries, and everything below one folder into another.
//
// Nothing is followed and nothing but a regular file is opened, so an entry that others replace while it is copied is a
// failure, not a surprise. Every file that was written has been closed with success in the end.
#pragma once

#include "platform/linux/copy_data.h"
#include "platform/linux/copy_metadata.h"
#include "platform/posix/copy_record.h"
#include "platform/posix/failure.h"
#include "platform/posix/identity.h"
#include "platform/posix/source_file.h"

#include <sys/stat.h>

#include <string_view>

namespace platform::linux_os {

struct CopyOptions {
    bool isMove = false;    // the source is to go: what couldn't be removed is refused, and files come to rest first
    bool isDurable = false; // the copy is to be on the disk

    const char* action() const { return isMove ? "move" : "copy"; }
    bool needsRecord() const { return isMove || isDurable; } // of what may have to be removed again
};

inline constexpr const char* intoItself = "a folder can't be put into itself";

class FileCopier {
public:
    // `flushesEach`: every file is written to the disk before it is closed.
    FileCopier(const CopyOptions& options, bool flushesEach) : options_(options), flushesEach_(flushesEach) {}

    // Data and metadata into an empty file that was just made. `current`: whom it belongs to.
    posix::Failure fill(const posix::OpenFile& source, int target, Owner current);

    // Into a new file of a folder that nobody else can change. `defaultOwner`: whom new entries of that folder belong
    // to.
    posix::Failure copy(const posix::OpenFile& source, int targetFolder, const char* name, Owner defaultOwner);

private:
    CopyOptions options_;
    bool flushesEach_;
    DataCopier data_;
};

// A link, FIFO or device into a folder that nobody else can change. `status`: the source's.
posix::Failure copySpecial(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                           const struct stat& status);

// Where a copy of a folder goes.
struct TreeTarget {
    int folder;            // open and empty, and so that nobody else can get into it until the copy is whole
    std::string_view name; // that it has until then; meeting it in the source is a failure: the copy would hold itself
    posix::Identity place; // the folder that holds it; meeting that in the source is a failure, too
};

// Copies what is in the folder at `name`, and its metadata last. Files with several names within it (hard links) have
// as many in the copy, as far as the file system can. An entry that has vanished since it was listed is left out, but
// fails a move. What comes into a folder after it has been listed isn't copied. `copied`: filled where the options need
// it. `status`: becomes the source's.
posix::Failure copyTree(const CopyOptions& options, int sourceFolder, const char* name, const TreeTarget& target,
                        posix::CopyRecord& copied, struct stat& status);

} // namespace platform::linux_os
