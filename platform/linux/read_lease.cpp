#include "platform/posix/read_lease.h"

#include "platform/posix/descriptor.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

namespace platform::posix {

ReadLease::ReadLease(int file)
{
    // The request to have it back must reach this thread, which keeps it out, and no other.
    const f_owner_ex owner{F_OWNER_TID, gettid()};
    if (fcntl(file, F_SETOWN_EX, &owner) == 0) {
        if (fcntl(file, F_SETLEASE, F_RDLCK) == 0) {
            leased_ = file;
        } else {
            isRefused_ = errno == EAGAIN;
        }
    }
}

ReadLease::~ReadLease()
{
    if (leased_ != -1) {
        const int saved = errno;
        fcntl(leased_, F_SETLEASE, F_UNLCK);
        errno = saved;
    }
}

// Documentation/filesystems/overlayfs.rst
bool renamingCopies(int folder)
{
    const Descriptor open = openAt(folder, ".", folderItself);
    struct statfs status {};
    return open && fstatfs(open.get(), &status) == 0 && status.f_type == OVERLAYFS_SUPER_MAGIC;
}

} // namespace platform::posix
