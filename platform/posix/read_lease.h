// Whether others may still write to a file that is about to be removed, as far as a system can tell.
//
// Each system has its own way: linux/read_lease.cpp, macos/read_lease.cpp.
#pragma once

namespace platform::posix {

// A lease on an open file (fcntl(2), F_SETLEASE): while it lasts nobody has the file open for writing, and who wants to
// waits. Only the file's owner and privileged processes get one, and only on some file systems. For moments only, with
// SIGIO kept from the thread: that is how the kernel asks to have it back.
class ReadLease {
public:
    explicit ReadLease(int file);
    ~ReadLease();
    ReadLease(const ReadLease&) = delete;
    ReadLease& operator=(const ReadLease&) = delete;

    // Somebody has the file open for writing. False also where there are no leases.
    bool isRefused() const { return isRefused_; }

private:
    int leased_ = -1; // the file, while the lease is held
    bool isRefused_ = false;
};

// Whether a new name would copy the file first, in the open folder: on Linux's overlay file system.
bool renamingCopies(int folder);

} // namespace platform::posix
