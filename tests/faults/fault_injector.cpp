// Each function stands for the C library's function of the same name, judges the call and passes it on. The judgement
// asks who calls (the return address), how many calls of the kind there were, and what the plan says of this one.
//
// Whole numbers and pointers travel in the same six registers whatever their types are, variable arguments included, on
// the architectures that this runs on. So one shape of function fits them all.

#include "faults/fault_injector.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace folidex::test {
namespace {

thread_local bool armed = false; // read inside of malloc
FaultPlan plan;
FaultReport report;
dl_find_object code;
std::array<ino_t, 256> closedFiles; // that had been open for writing
std::size_t closedCount;

bool isOurs(const void* caller)
{
    return caller >= code.dlfo_map_start && caller < code.dlfo_map_end;
}

bool failWith(int error)
{
    errno = error;
    return true;
}

// Whether the call fails, errno then set. `count`: of bytes, where the call may do less than it was asked for.
bool fails(Call call, const void* caller, long* count = nullptr)
{
    if (!armed || call == Call::none || (call != Call::allocate && !isOurs(caller))) {
        return false;
    }
    const unsigned number = ++report.calls[static_cast<std::size_t>(call)];
    if (call != Call::allocate && ++report.total == plan.intrudeAt) {
        armed = false;
        plan.intrude();
        armed = true;
    }
    if (const int error = plan.lacks[static_cast<std::size_t>(call)]) {
        return failWith(error);
    }
    const bool isPlanned = call == plan.call && number == plan.at;
    const bool isAfter = plan.at != 0 && report.calls[static_cast<std::size_t>(plan.call)] >= plan.at && !isPlanned;
    if (isAfter && call != Call::allocate && ++report.sinceFault == plan.secondAt) {
        report.struck = true;
        return failWith(EIO);
    }
    if (!isPlanned && !(isAfter && plan.lasts && call == plan.call)) {
        return false;
    }
    if (plan.error != shortCount) {
        report.struck = plan.secondAt == 0;
        return failWith(plan.error);
    }
    if (count != nullptr && *count > 1) {
        report.struck = true;
        *count /= 2;
    }
    return false;
}

// Whether nobody has been told yet, by an earlier close of the same file, that it was written well. A single byte is
// the archive script's report, whose loss costs a line of the log.
bool isFirstCloseOfWritten(int file)
{
    struct stat status {};
    std::array<char, 8> name{};
    std::array<char, 32> link{};
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", file);
    if ((fcntl(file, F_GETFL) & O_ACCMODE) == O_RDONLY || fstat(file, &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size <= 1 || readlink(link.data(), name.data(), name.size()) <= 0 ||
        std::string_view(name.data(), 7) == "/memfd:") {
        return false;
    }
    const auto end = closedFiles.begin() + closedCount;
    if (std::find(closedFiles.begin(), end, status.st_ino) != end || closedCount == closedFiles.size()) {
        return false;
    }
    closedFiles[closedCount++] = status.st_ino;
    return true;
}

Call kindOfOpen(long flags)
{
    if ((flags & O_TMPFILE) == O_TMPFILE) {
        return Call::unnamed;
    }
    return (flags & O_CREAT) != 0 ? Call::create : Call::open;
}

using Six = long(long, long, long, long, long, long);

Six* following(const char* symbol)
{
    return reinterpret_cast<Six*>(dlsym(RTLD_NEXT, symbol));
}

} // namespace

void armFaults(const FaultPlan& wanted)
{
    plan = wanted;
    report = {};
    closedCount = 0;
    _dl_find_object(const_cast<void*>(plan.code), &code);
    armed = true;
}

FaultReport disarmFaults()
{
    armed = false;
    return report;
}

} // namespace folidex::test

using namespace folidex::test;

// A function of our own whose name for the linker is the C library's, so that declarations and attributes play no part.
#define STAND_BEFORE(name, ...)                                                                                        \
    extern "C" __attribute__((visibility("default"))) long folidex_##name(long a, long b, long c, long d, long e,      \
                                                                          long f) asm(#name);                          \
    long folidex_##name(long a, long b, long c, long d, long e, long f)                                                \
    {                                                                                                                  \
        static Six* const next = following(#name);                                                                     \
        const void* const caller = __builtin_return_address(0);                                                        \
        __VA_ARGS__                                                                                                    \
    }

// `failure`: what the function answers when it fails.
#define FAILING(name, call, failure)                                                                                   \
    STAND_BEFORE(name, return fails(call, caller) ? (failure) : next(a, b, c, d, e, f);)
#define CALL(name, call) FAILING(name, call, -1L)
#define TRANSFER(name, call, count)                                                                                    \
    STAND_BEFORE(name, return fails(call, caller, &(count)) ? -1 : next(a, b, c, d, e, f);)

CALL(open64, kindOfOpen(b))
CALL(openat64, kindOfOpen(c))
TRANSFER(read, Call::read, c)
TRANSFER(pread64, Call::read, c)
TRANSFER(write, Call::write, c)
TRANSFER(pwrite64, Call::write, c)
TRANSFER(copy_file_range, Call::copyRange, e)
CALL(ioctl, b == FICLONE ? Call::clone : Call::none)
CALL(linkat, Call::link)
CALL(renameat2, Call::rename)
CALL(renameat, Call::renamePlain)
CALL(unlinkat, Call::unlink)
CALL(mkdir, Call::makeFolder)
CALL(mkdirat, Call::makeFolder)
CALL(symlinkat, Call::makeSpecial)
CALL(mknodat, Call::makeSpecial)
CALL(readlink, Call::readLink)
CALL(readlinkat, Call::readLink)
CALL(getdents64, Call::listFolder)
CALL(statx, Call::statx)
CALL(stat64, Call::stat)
CALL(lstat64, Call::stat)
CALL(fstat64, Call::stat)
CALL(fstatat64, Call::stat)
CALL(statvfs64, Call::volumeSpace)
CALL(fstatvfs64, Call::volumeSpace)
CALL(access, Call::access)
CALL(faccessat, Call::access)
CALL(fchmod, Call::changeMode)
CALL(fchmodat, Call::changeMode)
CALL(fchown, Call::changeOwner)
CALL(fchownat, Call::changeOwner)
CALL(futimens, Call::changeTimes)
CALL(utimensat, Call::changeTimes)
CALL(fsetxattr, Call::setAttribute)
CALL(lsetxattr, Call::setAttribute)
CALL(flistxattr, Call::readAttribute)
CALL(llistxattr, Call::readAttribute)
CALL(fgetxattr, Call::readAttribute)
CALL(lgetxattr, Call::readAttribute)
CALL(fremovexattr, Call::removeAttribute)
CALL(ftruncate64, Call::truncate)
CALL(lseek64, Call::seek)
CALL(fcntl64, Call::controlDescriptor)
CALL(memfd_create, Call::memoryFile)
CALL(getrandom, Call::random)
CALL(chdir, Call::changeFolder)
FAILING(fopen64, Call::openStream, 0L)
FAILING(popen, Call::openPipe, 0L)
CALL(pipe2, Call::makePipe)
FAILING(posix_spawn, Call::spawn, errno)
CALL(poll, Call::poll)

// The file is closed, and what was written to it may be lost.
STAND_BEFORE(close, {
    const bool isTold = armed && isOurs(caller) && isFirstCloseOfWritten(static_cast<int>(a));
    const bool failed = fails(Call::close, caller);
    const int error = errno;
    const long result = next(a, b, c, d, e, f);
    report.lostData = report.lostData || (failed && isTold);
    return failed ? (errno = error, -1) : result;
})

// As in a host that has its children reaped: the child has ended, how isn't known (wait(2), ECHILD).
STAND_BEFORE(pclose, {
    const bool failed = fails(Call::closePipe, caller);
    const long status = next(a, b, c, d, e, f);
    return failed ? (errno = ECHILD, -1) : status;
})
STAND_BEFORE(waitpid, {
    const bool failed = fails(Call::waitChild, caller);
    const int error = errno;
    const long child = failed && error == EINTR ? -1 : next(a, b, c, d, e, f);
    return failed ? (errno = error, -1) : child;
})

STAND_BEFORE(mkostemp64, {
    const long file = fails(Call::create, caller) ? -1 : next(a, b, c, d, e, f);
    if (armed && static_cast<int>(file) != -1) {
        std::strncpy(report.temporaryFile.data(), reinterpret_cast<const char*>(a), report.temporaryFile.size() - 1);
    }
    return file;
})

// The time that flushing takes, and the archive functions' second, are spared.
#define SPARED(name, call, isLong)                                                                                     \
    STAND_BEFORE(name, {                                                                                               \
        const bool failed = fails(call, caller);                                                                       \
        return failed ? -1 : armed && isOurs(caller) && (isLong) ? 0 : next(a, b, c, d, e, f);                         \
    })
SPARED(fsync, Call::flush, true)
SPARED(syncfs, Call::flush, true)
SPARED(nanosleep, Call::none, reinterpret_cast<const timespec*>(a)->tv_sec > 0)

// The C library's own, which need no dlsym(3): that allocates itself.
#define ALLOCATE(name, parameters, arguments)                                                                          \
    extern "C" void* real_##name parameters asm("__libc_" #name);                                                      \
    extern "C" __attribute__((visibility("default"))) void* folidex_##name parameters asm(#name);                      \
    void* folidex_##name parameters                                                                                    \
    {                                                                                                                  \
        return fails(Call::allocate, nullptr) ? nullptr : real_##name arguments;                                       \
    }

ALLOCATE(malloc, (std::size_t size), (size))
ALLOCATE(calloc, (std::size_t number, std::size_t size), (number, size))
ALLOCATE(realloc, (void* block, std::size_t size), (block, size))
