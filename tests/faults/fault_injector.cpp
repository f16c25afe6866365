// Each function stands for the C library's function of the same name, judges the call and passes it on. The judgement
// asks who calls (the return address), how many calls of the name there were, and what the plan says of this one.
//
// Whole numbers and pointers travel in the same six registers whatever their types are, variable arguments included, on
// the architectures that this runs on. So one shape of function fits them all.

#include "faults/fault_injector.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <set>
#include <string>

namespace folidex::test {
namespace {

constexpr CallName allocation = "malloc";
constexpr CallName threadStart = "thread"; // by way of the C++ library

thread_local bool armed = false; // read inside of malloc
FaultPlan plan;
FaultReport report;
unsigned reached = 0; // calls of the planned name
dl_find_object code;
std::set<ino_t> closedFiles; // that had been open for writing

// What the driver itself does isn't seen.
struct Pause {
    Pause() { armed = false; }
    ~Pause() { armed = true; }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
};

bool isSeen(const void* caller)
{
    return armed && caller >= code.dlfo_map_start && caller < code.dlfo_map_end;
}

bool failWith(int error)
{
    errno = error;
    return true;
}

bool strike(long* count)
{
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

// Whether the call fails, errno then set. `count`: of bytes, where the call may do less than it was asked for.
bool fails(CallName call, const void* caller, long* count = nullptr)
{
    const bool isAllocation = call == allocation;
    if (!armed || (!isAllocation && call != threadStart && !isSeen(caller))) {
        return false;
    }
    {
        const Pause pause;
        ++report.calls[call];
        if (!isAllocation && ++report.total == plan.intrudeAt) {
            plan.intrude();
        }
    }
    for (const auto& [lacking, error] : plan.lacks) {
        if (lacking == call) {
            return failWith(error);
        }
    }
    if (call == plan.call) {
        ++reached;
        if (reached == plan.at || (reached > plan.at && plan.lasts)) {
            return strike(count);
        }
    }
    if (plan.at != 0 && reached >= plan.at && !isAllocation && ++report.sinceFault == plan.secondAt) {
        report.struck = true;
        return failWith(EIO);
    }
    return false;
}

// Whether nobody has been told yet, by an earlier close of the same file, that it was written well. A single byte is no
// content but a mark for the archive script.
bool isFirstCloseOfWritten(int file)
{
    const Pause pause;
    struct stat status {};
    return (fcntl(file, F_GETFL) & O_ACCMODE) != O_RDONLY && fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_size > 1 &&
           !std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file)).native().starts_with("/memfd:") &&
           closedFiles.insert(status.st_ino).second;
}

CallName nameOfOpen(long flags, const void* caller)
{
    report.inheritable = report.inheritable || (isSeen(caller) && (flags & O_CLOEXEC) == 0);
    if ((flags & O_TMPFILE) == O_TMPFILE) {
        return "unnamed";
    }
    return (flags & O_CREAT) != 0 ? "create" : "open";
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
    reached = 0;
    closedFiles.clear();
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

// `failure`: what the function returns when it fails.
#define FAILING(name, call, failure)                                                                                   \
    STAND_BEFORE(name, return fails(call, caller) ? (failure) : next(a, b, c, d, e, f);)
#define CALL(name, call) FAILING(name, call, -1L)
#define TRANSFER(name, call, count)                                                                                    \
    STAND_BEFORE(name, return fails(call, caller, &(count)) ? -1 : next(a, b, c, d, e, f);)

CALL(open64, nameOfOpen(b, caller))
CALL(openat64, nameOfOpen(c, caller))
TRANSFER(read, "read", c)
TRANSFER(pread64, "read", c)
TRANSFER(write, "write", c)
TRANSFER(pwrite64, "write", c)
TRANSFER(copy_file_range, "copy_file_range", e)
CALL(ioctl, b == FICLONE ? "clone" : "ioctl")
CALL(linkat, "link")
CALL(renameat2, "renameat2")
CALL(renameat, "rename")
CALL(unlinkat, "unlink")
CALL(mkdir, "mkdir")
CALL(mkdirat, "mkdir")
CALL(symlinkat, "symlink")
CALL(mknodat, "mknod")
CALL(readlink, "readlink")
CALL(readlinkat, "readlink")
CALL(getdents64, "getdents")
CALL(statx, "statx")
CALL(stat64, "stat")
CALL(lstat64, "stat")
CALL(fstat64, "stat")
CALL(fstatat64, "stat")
CALL(statvfs64, "statvfs")
CALL(fstatvfs64, "statvfs")
CALL(fstatfs64, "statfs")
CALL(access, "access")
CALL(faccessat, "access")
CALL(fchmod, "chmod")
CALL(fchmodat, "chmod")
CALL(fchown, "chown")
CALL(fchownat, "chown")
CALL(futimens, "utimens")
CALL(utimensat, "utimens")
CALL(fsetxattr, "setxattr")
CALL(lsetxattr, "setxattr")
CALL(flistxattr, "listxattr")
CALL(llistxattr, "listxattr")
CALL(fgetxattr, "getxattr")
CALL(lgetxattr, "getxattr")
CALL(fremovexattr, "removexattr")
CALL(flock, "lock")
CALL(ftruncate64, "truncate")
CALL(lseek64, "lseek")
CALL(fcntl64, b == F_SETOWN_EX || b == F_SETLEASE ? "lease" : "fcntl")
CALL(memfd_create, "memfd")
CALL(getentropy, "getentropy")
CALL(chdir, "chdir")
FAILING(fopen64, "fopen", 0L)
FAILING(popen, "popen", 0L)
CALL(pipe2, "pipe")
FAILING(posix_spawn, "spawn", errno)
FAILING(pthread_create, threadStart, errno)
CALL(poll, "poll")

// The file is closed, and what was written to it may be lost.
STAND_BEFORE(close, {
    const bool isTold = isSeen(caller) && isFirstCloseOfWritten(static_cast<int>(a));
    const bool failed = fails("close", caller);
    const int error = errno;
    const long result = next(a, b, c, d, e, f);
    report.lostData = report.lostData || (failed && isTold);
    return failed ? (errno = error, -1) : result;
})

// As in a host that has its children reaped: the child has ended, how isn't known (wait(2), ECHILD).
STAND_BEFORE(pclose, {
    const bool failed = fails("pclose", caller);
    const long status = next(a, b, c, d, e, f);
    return failed ? (errno = ECHILD, -1) : status;
})
STAND_BEFORE(waitpid, {
    const bool failed = fails("waitpid", caller);
    const int error = errno;
    const long child = failed && error == EINTR ? -1 : next(a, b, c, d, e, f);
    return failed ? (errno = error, -1) : child;
})

STAND_BEFORE(mkostemp64, {
    const long file = fails(nameOfOpen(b | O_CREAT, caller), caller) ? -1 : next(a, b, c, d, e, f);
    report.temporaryFiles += isSeen(caller) && static_cast<int>(file) != -1;
    return file;
})
STAND_BEFORE(unlink, {
    const long result = next(a, b, c, d, e, f);
    report.temporaryFiles -= isSeen(caller) && static_cast<int>(result) == 0;
    return result;
})

// The time that flushing takes, and the archive functions' second, are spared.
#define SPARED(name, failure, isLong)                                                                                  \
    STAND_BEFORE(name, {                                                                                               \
        const bool failed = isSeen(caller) && (failure);                                                               \
        return failed ? -1 : isSeen(caller) && (isLong) ? 0 : next(a, b, c, d, e, f);                                  \
    })
SPARED(fsync, fails("flush", caller), true)
SPARED(syncfs, fails("flush", caller), true)
SPARED(nanosleep, false, reinterpret_cast<const timespec*>(a)->tv_sec > 0)

// The C library's own, which need no dlsym(3): that allocates itself.
#define ALLOCATE(name, parameters, arguments)                                                                          \
    extern "C" void* real_##name parameters asm("__libc_" #name);                                                      \
    extern "C" __attribute__((visibility("default"))) void* folidex_##name parameters asm(#name);                      \
    void* folidex_##name parameters                                                                                    \
    {                                                                                                                  \
        return fails(allocation, nullptr) ? nullptr : real_##name arguments;                                           \
    }

ALLOCATE(malloc, (std::size_t size), (size))
ALLOCATE(calloc, (std::size_t number, std::size_t size), (number, size))
ALLOCATE(realloc, (void* block, std::size_t size), (block, size))
