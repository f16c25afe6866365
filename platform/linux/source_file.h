// Regular files that are copied from, and whether others change them meanwhile.
#pragma once

#include "platform/linux/descriptor.h"
#include "platform/linux/system_error.h"

#include <sys/stat.h>

namespace platform::linux_os {

struct OpenFile {
    Descriptor descriptor;
    struct stat status {};
};

inline constexpr const char* exchangedMeanwhile = "the item was exchanged while it was being copied";

// Opens a regular file for reading; anything else under that name is a failure.
CopyFailure openFile(int folder, const char* name, OpenFile& file);

// A lease on an open file (fcntl(2), F_SETLEASE): while it lasts nobody has the file open for writing, and who wants to
// waits. Only the file's owner and privileged processes get one, and only on some file systems. Take it for moments
// only, with SIGIO kept from the thread: that is how the kernel asks to have it back.
class ReadLease {
public:
    explicit ReadLease(int file);
    ~ReadLease();
    ReadLease(const ReadLease&) = delete;
    ReadLease& operator=(const ReadLease&) = delete;

    // Somebody has the file open for writing. False also where there are no leases.
    bool isRefused() const { return isRefused_; }

private:
    int file_;
    bool isTaken_ = false;
    bool isRefused_ = false;
};

// Readies a file for a copy whose source is to go: one that is open for writing is a failure, and a file that was
// changed just now gets a moment of rest and `status` anew, for a second change with the same time couldn't be seen
// afterwards. One that finds no rest is a failure, too.
CopyFailure requireRest(OpenFile& file);

} // namespace platform::linux_os
