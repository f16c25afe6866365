// Copies what is in open folders: single entries, and everything below one folder into another.
//
// Nothing is followed and nothing but a regular file is opened, so an entry that others exchange while it is copied is
// a failure, not a surprise. Every file that was written has been closed with success in the end.
#pragma once

#include "platform/copy_record.h"
#include "platform/linux/copy_data.h"
#include "platform/linux/copy_metadata.h"
#include "platform/linux/source_file.h"
#include "platform/linux/system_error.h"
#include "platform/linux/tree_walk.h"
#include "platform/outcome.h"

#include <string_view>

namespace platform::linux_os {

struct CopyAim {
    bool isMove = false;    // the source is to go: what couldn't be removed is refused, and files come to rest first
    bool isDurable = false; // the copy is to be on the disk

    const char* action() const { return isMove ? "move" : "copy"; }
};

class FileCopier {
public:
    // `flushesEach`: every file is written to the disk before it is closed.
    FileCopier(const CopyAim& aim, bool flushesEach) : aim_(aim), flushesEach_(flushesEach) {}

    // Data and metadata into an empty file that was just made. `current`: whom it belongs to.
    CopyFailure fill(const OpenFile& source, int target, Owner current);

    // A regular file into a folder that nobody else can change, under the same name. `newcomer`: whom new entries of
    // that folder belong to. `status`: becomes the source's, from before it was read.
    CopyFailure copy(int sourceFolder, const char* name, int targetFolder, Owner newcomer, struct stat& status);

private:
    CopyAim aim_;
    bool flushesEach_;
    DataCopier data_;
};

// A link, FIFO or device into a folder that nobody else can change. `status`: as above.
CopyFailure copySpecial(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                        struct stat& status);

// `source`: open for reading; `target`: empty, and so that nobody else can get into it until the copy is whole. Both
// stay the caller's, and are paths in file-system bytes where texts, for messages. `forbidden`: the folder that the
// copy will end up in; meeting it in the source is a failure, as the copy would then hold itself. Files with several
// hard links become files of their own. The target gets the source's metadata last. `copied` is filled for a move only.
Outcome copyTree(const CopyAim& aim, int source, int target, std::string_view sourcePath, std::string_view targetPath,
                 Identity forbidden, CopyRecord& copied);

} // namespace platform::linux_os
