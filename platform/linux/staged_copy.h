// A copy that is built where nobody looks and then appears at its target in one step.
//
// A file is written into an unnamed file of the target's folder (open(2), O_TMPFILE), which vanishes with the process.
// Where the file system has none, and for folders, links, FIFOs and devices, the copy is built under a temporary name
// (platform/posix/names.h) beside the target, in a folder that only its owner can enter; only a process that is killed
// leaves that behind.
#pragma once

#include "platform/linux/copy_tree.h"
#include "platform/outcome.h"
#include "platform/posix/copy_record.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/item_path.h"

#include <sys/stat.h>

#include <string>

namespace platform::linux_os {

class StagedCopy {
public:
    // The locations must outlive the copy.
    StagedCopy(const posix::Location& source, const posix::Location& target, const CopyOptions& options);
    ~StagedCopy();
    StagedCopy(const StagedCopy&) = delete;
    StagedCopy& operator=(const StagedCopy&) = delete;

    // Copies everything, onto the disk where the options say so. A move's source that can't be removed is refused
    // first.
    Outcome build();

    // Gives the copy its name, unless something else has it by now; the name too is then on the disk where the options
    // say so.
    Outcome publish();

    // Otherwise a published copy goes with the value, but for what others have put into it or changed.
    void keep() { removeOnExit_ = false; }

    // The source as it was copied; for a move only, once build() is through.
    const posix::CopyRecord& copied() const { return copied_; }
    bool isFolder() const { return S_ISDIR(status_.st_mode); }

private:
    int errorOfRemoving() const;
    Outcome buildFile();
    Outcome buildFolder();
    Outcome buildSpecial();
    Outcome makeTemporaryFolder();
    bool takeOver() const;
    int makeFile();
    int giveName();
    bool isRefusedAsUnnamed(int error) const;
    void withdraw() const;

    Outcome failed(const posix::Failure& failure) const
    {
        return failure.outcome(options_.action(), source_.path.text, target_.path.text);
    }

    const posix::Location& source_;
    const posix::Location& target_;
    CopyOptions options_;
    bool usesUnnamedFiles_ = true;
    bool removeOnExit_ = false; // published, but not kept
    struct stat status_ {};
    struct stat published_ {};  // the copy as it got its name
    posix::Descriptor made_;    // the file, the folder, or the folder around a special item
    std::string temporaryName_; // in the target's folder; empty for an unnamed file and when published
    posix::CopyRecord copied_;
};

} // namespace platform::linux_os

namespace platform::posix {

using linux_os::intoItself;
using linux_os::StagedCopy;

} // namespace platform::posix
