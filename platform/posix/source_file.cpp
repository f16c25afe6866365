#include "platform/posix/source_file.h"

#include <cerrno>

namespace platform::posix {

Failure openFile(int folder, const char* name, OpenFile& file)
{
    // FIFOs don't hold up the opening, terminals don't become the process's own.
    constexpr int withoutEffect = O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
    file.descriptor = openAt(folder, name, withoutEffect);
    if (!file.descriptor && errno == EWOULDBLOCK) {
        // A regular file under lease: its holder, a file server, is asked to let go.
        file.descriptor = openAt(folder, name, withoutEffect & ~O_NONBLOCK);
    }
    if (!file.descriptor || fstat(file.descriptor.get(), &file.status) != 0) {
        return errno == ELOOP ? Failure::because(replacedMeanwhile) : Failure::ofSource(errno);
    }
    return S_ISREG(file.status.st_mode) ? Failure{} : Failure::because(replacedMeanwhile);
}

} // namespace platform::posix
