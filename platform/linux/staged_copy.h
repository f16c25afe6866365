// A copy that is built where nobody looks and then appears at its target in one step.
//
// A file is written into an unnamed file of the target's folder (open(2), O_TMPFILE), which vanishes with the process.
// Where the file system has none, and for folders, links, FIFOs and devices, the copy is built under a temporary name
// (publish.h) beside the target, in a folder that only its owner can enter; only a process that is killed leaves that
// behind.
//
// Thread rule: a value belongs to one thread at a time.
#pragma once

#include "platform/linux/copy_entry.h"
#include "platform/linux/copy_tree.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/item_path.h"
#include "platform/outcome.h"

#include <sys/stat.h>

#include <string>

namespace platform::linux_os {

class StagedCopy {
public:
    // The locations must outlive the copy.
    StagedCopy(const Location& source, const Location& target, CopyPurpose purpose);
    ~StagedCopy();
    StagedCopy(const StagedCopy&) = delete;
    StagedCopy& operator=(const StagedCopy&) = delete;

    // Copies everything. Refuses before anything is written: a missing source, a target that exists, a folder into
    // itself, and for a move a source that can't be removed.
    Outcome build();

    // Waits until the copy is on the disk.
    Outcome flush() const;

    // Gives the copy its name, unless something else has it by now.
    Outcome publish();

    // Waits until the name is on the disk as well.
    Outcome flushName() const;

    // Takes the published copy away again.
    void withdraw() const;

    // The source as it was copied.
    const struct stat& sourceStatus() const { return m_status; }

private:
    Outcome check();
    Outcome buildFile();
    Outcome buildFolder();
    Outcome buildSpecial();
    Outcome makeTemporaryFolder();
    bool takeOver() const;
    int makeFile();

    Outcome failed(const CopyFailure& failure) const
    {
        return failure.outcome(actionOf(m_purpose), m_source.path.text, m_target.path.text);
    }

    const Location& m_source;
    const Location& m_target;
    CopyPurpose m_purpose;
    struct stat m_status {};
    struct stat m_targetFolder {};
    Descriptor m_made;           // the file, the folder, or the folder around a special item
    std::string m_temporaryName; // in the target's folder; empty for an unnamed file and when published
};

} // namespace platform::linux_os
