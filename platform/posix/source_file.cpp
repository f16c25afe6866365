#include "platform/posix/source_file.h"

#ifdef __linux__
#include <linux/magic.h>
#include <sys/vfs.h>
#endif
#include <unistd.h>

#include <cerrno>

namespace platform::posix {

namespace {

// Reading brings the content, and changes flags and time of last change (Apple's technical note TN3150).
int materialize([[maybe_unused]] OpenFile& file)
{
#ifdef SF_DATALESS
    char byte = 0;
    const int opened = file.descriptor.get();
    if ((file.status.st_flags & SF_DATALESS) != 0 &&
        (retried([&] { return pread(opened, &byte, 1, 0); }) < 0 || fstat(opened, &file.status) != 0)) {
        return errno;
    }
#endif
    return 0;
}

// It has shrunk, or makes up its content as it is read and says a page's size (sysfs).
bool mayEndEarly(const OpenFile& file)
{
    const int opened = file.descriptor.get();
    struct stat now {};
    if (fstat(opened, &now) == 0 && now.st_size < file.status.st_size) {
        return true;
    }
#ifdef __linux__
    struct statfs system {};
    return fstatfs(opened, &system) == 0 && system.f_type == SYSFS_MAGIC;
#else
    return false;
#endif
}

} // namespace

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
    return S_ISREG(file.status.st_mode) ? Failure::ofSource(materialize(file)) : Failure::because(replacedMeanwhile);
}

Failure requireWhole(const OpenFile& file, off_t copied)
{
    return copied >= file.status.st_size || mayEndEarly(file)
               ? Failure{}
               : Failure::because("it has less content than its size says");
}

} // namespace platform::posix
