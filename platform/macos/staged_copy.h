// A copy that is built where nobody looks and then appears at its target in one step: under a temporary name
// (platform/posix/names.h) beside the target, which only a process that is killed leaves behind.
#pragma once

#include "platform/macos/copy_tree.h"
#include "platform/outcome.h"
#include "platform/posix/copy_record.h"
#include "platform/posix/item_path.h"

#include <sys/stat.h>

#include <string>

namespace platform::macos {

class StagedCopy {
public:
    // The locations must outlive the copy.
    StagedCopy(const posix::Location& source, const posix::Location& target, const CopyOptions& options)
        : source_(source), target_(target), options_(options)
    {
    }
    ~StagedCopy();
    StagedCopy(const StagedCopy&) = delete;
    StagedCopy& operator=(const StagedCopy&) = delete;

    // Copies everything, onto the disk where the options say so.
    Outcome build();

    // Gives the copy its name, unless something else has it by now; the name too is then on the disk where the options
    // say so.
    Outcome publish();

    // Otherwise a published copy goes with the value, less what others have put into it or changed.
    void keep() { removeOnExit_ = false; }

    // The source as it was copied, once build() is through.
    const posix::CopyRecord& copied() const { return copied_; }
    bool isFolder() const { return S_ISDIR(status_.st_mode); }

private:
    posix::Failure flush() const;
    Outcome worded(const posix::Failure& failure) const
    {
        return failure.outcome(options_.action(), source_.path.text, target_.path.text);
    }

    const posix::Location& source_;
    const posix::Location& target_;
    CopyOptions options_;
    struct stat status_ {};     // the source's
    std::string temporaryName_; // in the target's folder; empty when there is nothing
    bool removeOnExit_ = false; // published, but not kept
    posix::CopyRecord copied_;
};

} // namespace platform::macos

namespace platform::posix {

using macos::intoItself;
using macos::StagedCopy;

} // namespace platform::posix
