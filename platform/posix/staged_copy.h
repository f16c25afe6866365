// A copy that is built where nobody looks and then appears at its target in one step.
//
// A file is written into an unnamed file of the target's folder (open(2), O_TMPFILE), which vanishes with the process.
// Where there are none, as on macOS, and for folders, links, FIFOs and devices, the copy is built under a temporary
// name (names.h) beside the target, all but a file in a folder that only its owner can enter; only a process that is
// killed leaves that behind.
#pragma once

#include "platform/outcome.h"
#include "platform/posix/copy_item.h"
#include "platform/posix/copy_record.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/failure.h"
#include "platform/posix/item_path.h"

#include <sys/stat.h>

#include <string>

namespace platform::posix {

class StagedCopy {
public:
    // The locations must outlive the copy.
    StagedCopy(const Location& source, const Location& target, const CopyOptions& options);
    ~StagedCopy();
    StagedCopy(const StagedCopy&) = delete;
    StagedCopy& operator=(const StagedCopy&) = delete;

    // Copies everything, onto the disk where the options say so.
    Outcome build();

    // Gives the copy its name, unless something else has it by now; the name too is then on the disk where the options
    // say so.
    Outcome publish();

    // Otherwise a published copy goes with the value, but for what others have put into it or changed.
    void keep() { removeOnExit_ = false; }

    // The source as it was copied; for a move only, once build() is through.
    const CopyRecord& copied() const { return copied_; }
    bool isFolder() const { return S_ISDIR(status_.st_mode); }

private:
    Failure buildFile();
    Failure buildFolder();
    Failure buildSpecial();
    Failure makeTemporaryFolder();
    int giveName();
    bool isRefusedAsUnnamed(int error) const;
    void withdraw() const;

    Outcome failed(const Failure& failure) const
    {
        return failure.outcome(options_.action(), source_.path.text, target_.path.text);
    }

    const Location& source_;
    const Location& target_;
    CopyOptions options_;
    bool usesUnnamedFiles_ = true;
    bool removeOnExit_ = false; // published, but not kept
    struct stat status_ {};     // the source's
    struct stat special_ {};    // the copy of a special item, right before it got its name
    Descriptor made_;           // the file, the folder, or the folder around a special item
    std::string temporaryName_; // in the target's folder; empty for an unnamed file and when published
    CopyRecord copied_;
};

} // namespace platform::posix
