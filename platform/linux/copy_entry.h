// Copies single entries from one open folder into another: files, links, FIFOs, devices.
//
// Nothing is followed and nothing but a regular file is opened, so an entry that others exchange while it is copied is
// a failure, not a surprise. Thread rule: a copier belongs to one thread at a time.
#pragma once

#include "platform/linux/copy_data.h"
#include "platform/linux/copy_failure.h"
#include "platform/linux/copy_metadata.h"
#include "platform/linux/descriptor.h"

#include <sys/stat.h>

namespace platform::linux_os {

struct OpenFile {
    Descriptor descriptor;
    struct stat status {};
};

class EntryCopier {
public:
    // Data and metadata into an empty file that was just made. `current`: whom it belongs to.
    CopyFailure fill(const OpenFile& source, int target, Owner current);

    // A regular file into a folder that nobody else can change, under the same name. `newcomer`: whom new entries of
    // that folder belong to.
    CopyFailure copyFile(int sourceFolder, const char* name, int targetFolder, Owner newcomer);

private:
    DataCopier m_data;
};

// Opens a regular file for reading; anything else under that name is a failure.
CopyFailure openFile(int folder, const char* name, OpenFile& file);

// A link, FIFO or device into a folder that nobody else can change.
CopyFailure copySpecial(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName);

} // namespace platform::linux_os
