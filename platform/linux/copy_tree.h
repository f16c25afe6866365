// Copies what is in open folders: single entries, and everything below one folder into another.
//
// Nothing is followed and nothing but a regular file is opened, so an entry that others replace while it is copied is a
// failure, not a surprise. Every file that was written has been closed with success in the end.
#pragma once

#include "platform/linux/copy_data.h"
#include "platform/linux/copy_metadata.h"
#include "platform/linux/source_file.h"
#include "platform/posix/copy_record.h"
#include "platform/posix/failure.h"
#include "platform/posix/identity.h"

#include <sys/stat.h>

namespace platform::linux_os {

struct CopyOptions {
    bool isMove = false;    // the source is to go: what couldn't be removed is refused, and files come to rest first
    bool isDurable = false; // the copy is to be on the disk

    const char* action() const { return isMove ? "move" : "copy"; }
};

inline constexpr const char* intoItself = "a folder can't be put into itself";

class FileCopier {
public:
    // `flushesEach`: every file is written to the disk before it is closed.
    FileCopier(const CopyOptions& options, bool flushesEach) : options_(options), flushesEach_(flushesEach) {}

    // Data and metadata into an empty file that was just made. `current`: whom it belongs to.
    posix::Failure fill(const OpenFile& source, int target, Owner current);

    // A regular file into a folder that nobody else can change, under the same name. `defaultOwner`: whom new entries
    // of that folder belong to. `status`: becomes the source's, from before it was read.
    posix::Failure copy(int sourceFolder, const char* name, int targetFolder, Owner defaultOwner, struct stat& status);

private:
    CopyOptions options_;
    bool flushesEach_;
    DataCopier data_;
};

// A link, FIFO or device into a folder that nobody else can change. `status`: as above.
posix::Failure copySpecial(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                           struct stat& status);

// The folder at `name` into `target`, which is empty, and so that nobody else can get into it until the copy is whole;
// it stays the caller's. `forbidden`: the folder that the copy will end up in; meeting it in the source is a failure,
// as the copy would then hold itself. Files with several hard links become files of their own. The target gets the
// source's metadata last. `copied` is filled for a move only. `status`: becomes the source's.
posix::Failure copyTree(const CopyOptions& options, int sourceFolder, const char* name, int target,
                        posix::Identity forbidden, posix::CopyRecord& copied, struct stat& status);

} // namespace platform::linux_os
