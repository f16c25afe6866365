#include "platform/linux/source_file.h"

#include "platform/copy_record.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

namespace platform::linux_os {

namespace {

// FIFOs don't hold up the opening, terminals don't become the process's own.
constexpr int openWithoutEffect = O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC | O_NONBLOCK;

constexpr int mostRests = 3;

} // namespace

CopyFailure openFile(int folder, const char* name, OpenFile& file)
{
    int descriptor = retried([&] { return openat(folder, name, openWithoutEffect); });
    if (descriptor < 0 && errno == EWOULDBLOCK) {
        // A regular file under lease: its holder, a file server, is asked to let go.
        descriptor = retried([&] { return openat(folder, name, openWithoutEffect & ~O_NONBLOCK); });
    }
    file.descriptor = Descriptor(descriptor);
    if (!file.descriptor || fstat(file.descriptor.get(), &file.status) != 0) {
        return errno == ELOOP ? CopyFailure::because(exchangedMeanwhile) : CopyFailure::ofSource(errno);
    }
    if (!S_ISREG(file.status.st_mode)) {
        return CopyFailure::because(exchangedMeanwhile);
    }
    return {};
}

ReadLease::ReadLease(int file) : file_(file)
{
    // The request to have it back must reach this thread, which keeps it out, and no other.
    const f_owner_ex owner{F_OWNER_TID, gettid()};
    if (fcntl(file, F_SETOWN_EX, &owner) == 0) {
        isTaken_ = fcntl(file, F_SETLEASE, F_RDLCK) == 0;
        isRefused_ = !isTaken_ && errno == EAGAIN;
    }
}

ReadLease::~ReadLease()
{
    if (isTaken_) {
        const int saved = errno;
        fcntl(file_, F_SETLEASE, F_UNLCK);
        errno = saved;
    }
}

CopyFailure requireRest(OpenFile& file)
{
    if (ReadLease(file.descriptor.get()).isRefused()) {
        return CopyFailure::because("the file is open for writing");
    }
    for (int rests = 0; rests < mostRests; ++rests) {
        const std::int64_t left = timeUntilNextStamp(file.status);
        if (left == 0) {
            return {};
        }
        constexpr std::int64_t second = 1'000'000'000;
        const timespec rest{left / second, left % second};
        nanosleep(&rest, nullptr);
        if (fstat(file.descriptor.get(), &file.status) != 0) {
            return CopyFailure::ofSource(errno);
        }
    }
    return CopyFailure::because("the file is being written to");
}

} // namespace platform::linux_os
