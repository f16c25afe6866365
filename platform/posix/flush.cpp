#include "platform/posix/flush.h"

#include "platform/posix/descriptor.h"

#include <unistd.h>

#include <cerrno>

namespace platform::posix {

int flushEntries(int folder, int inside)
{
    if (const Descriptor readable = openAt(folder, ".", folderItself)) {
        return flushFolder(readable.get());
    }
    if (inside >= 0) {
        return flushFileSystem(inside);
    }
    const int error = errno;
    sync();
    return error == EACCES ? 0 : error;
}

} // namespace platform::posix
