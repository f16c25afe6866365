#include "platform/linux/source_file.h"

#include <cerrno>

namespace platform::linux_os {

posix::Failure openFile(int folder, const char* name, OpenFile& file)
{
    // FIFOs don't hold up the opening, terminals don't become the process's own.
    constexpr int withoutEffect = O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
    file.descriptor = posix::openAt(folder, name, withoutEffect);
    if (!file.descriptor && errno == EWOULDBLOCK) {
        // A regular file under lease: its holder, a file server, is asked to let go.
        file.descriptor = posix::openAt(folder, name, withoutEffect & ~O_NONBLOCK);
    }
    if (!file.descriptor || fstat(file.descriptor.get(), &file.status) != 0) {
        return errno == ELOOP ? posix::Failure::because(replacedMeanwhile) : posix::Failure::ofSource(errno);
    }
    return S_ISREG(file.status.st_mode) ? posix::Failure{} : posix::Failure::because(replacedMeanwhile);
}

} // namespace platform::linux_os
