#include "platform/linux/source_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

namespace platform::linux_os {

namespace {

// FIFOs don't hold up the opening, terminals don't become the process's own.
constexpr int openWithoutEffect = O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC | O_NONBLOCK;

constexpr std::int64_t longestTick = 10'000'000; // nanoseconds, of a kernel with 100 ticks a second

std::int64_t nanoseconds(const timespec& time)
{
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

// How long the clock that stamps files may still show the time of this change.
std::int64_t restOfTick(const timespec& change)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    const std::int64_t age = nanoseconds(now) - nanoseconds(change);
    // A time in the future is another clock's.
    return age > 0 || age < -longestTick ? 0 : longestTick;
}

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
    const timespec rest{0, restOfTick(file.status.st_ctim)};
    if (rest.tv_nsec > 0) {
        nanosleep(&rest, nullptr);
        if (fstat(file.descriptor.get(), &file.status) != 0) {
            return CopyFailure::ofSource(errno);
        }
    }
    return {};
}

} // namespace platform::linux_os
