#include "faults/fault_injector.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <type_traits>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace folidex::test {
namespace {

// No dynamic allocation behind it: it is read inside of malloc.
__attribute__((tls_model("initial-exec"))) thread_local bool armed = false;
FaultPlan plan;
FaultReport report;

enum class Verdict { passes, fails, isShort };

Verdict judge(Call call, const void* caller)
{
    const auto at = reinterpret_cast<std::uintptr_t>(caller);
    const bool ours = call == Call::allocate || (at >= plan.codeBegin && at < plan.codeEnd);
    if (!armed || !ours || call == Call::count_) {
        return Verdict::passes;
    }
    const unsigned number = ++report.calls[static_cast<std::size_t>(call)];
    if (call != Call::allocate && ++report.total == plan.intrudeAt) {
        armed = false;
        plan.intrude();
        armed = true;
    }
    if (call == plan.denied) {
        errno = plan.deniedError;
        return Verdict::fails;
    }
    if (call != plan.call || number != plan.at) {
        return Verdict::passes;
    }
    if (plan.error == shortCount) {
        return Verdict::isShort;
    }
    report.struck = true;
    errno = plan.error;
    return Verdict::fails;
}

template <typename Function>
Function* following(const char* symbol)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

// What a function answers when it fails.
template <typename Result>
Result failure()
{
    if constexpr (std::is_pointer_v<Result>) {
        return nullptr;
    } else {
        return Result{-1};
    }
}

std::size_t shortened(std::size_t count)
{
    report.struck = report.struck || count > 1;
    return std::max<std::size_t>(count / 2, 1);
}

} // namespace
} // namespace folidex::test

using namespace folidex::test;

EXPORTED void folidexArmFaults(const FaultPlan* wanted)
{
    plan = *wanted;
    report = {};
    armed = true;
}

EXPORTED FaultReport folidexDisarmFaults()
{
    armed = false;
    return report;
}

// Defines the C library's function under a name of our own, so that its declaration and attributes play no part.
#define INTERPOSE(result, name, call, parameters, arguments)                                                           \
    EXPORTED result folidex_##name parameters asm(#name);                                                              \
    result folidex_##name parameters                                                                                   \
    {                                                                                                                  \
        static const auto next = following<result parameters>(#name);                                                  \
        return judge(call, __builtin_return_address(0)) == Verdict::fails ? failure<result>() : next arguments;        \
    }

// The same for what moves `count` bytes and may move fewer.
#define INTERPOSE_TRANSFER(name, call, parameters, arguments)                                                          \
    EXPORTED ssize_t folidex_##name parameters asm(#name);                                                             \
    ssize_t folidex_##name parameters                                                                                  \
    {                                                                                                                  \
        static const auto next = following<ssize_t parameters>(#name);                                                 \
        const Verdict verdict = judge(call, __builtin_return_address(0));                                              \
        if (verdict == Verdict::isShort) {                                                                             \
            count = shortened(count);                                                                                  \
        }                                                                                                              \
        return verdict == Verdict::fails ? -1 : next arguments;                                                        \
    }

namespace {

Call kindOfOpen(int flags)
{
    if ((flags & O_TMPFILE) == O_TMPFILE) {
        return Call::unnamed;
    }
    return (flags & O_CREAT) != 0 ? Call::create : Call::open;
}

} // namespace

// Their variable arguments travel as fixed ones do on the architectures that this runs on.
INTERPOSE(int, open64, kindOfOpen(flags), (const char* path, int flags, mode_t mode), (path, flags, mode))
INTERPOSE(int, openat64, kindOfOpen(flags), (int folder, const char* path, int flags, mode_t mode),
          (folder, path, flags, mode))
INTERPOSE(int, ioctl, request == FICLONE ? Call::clone : Call::count_, (int file, unsigned long request, void* value),
          (file, request, value))
INTERPOSE(int, fcntl64, Call::controlDescriptor, (int file, int command, long value), (file, command, value))

INTERPOSE_TRANSFER(read, Call::read, (int file, void* bytes, std::size_t count), (file, bytes, count))
INTERPOSE_TRANSFER(pread64, Call::read, (int file, void* bytes, std::size_t count, off_t position),
                   (file, bytes, count, position))
INTERPOSE_TRANSFER(write, Call::write, (int file, const void* bytes, std::size_t count), (file, bytes, count))
INTERPOSE_TRANSFER(pwrite64, Call::write, (int file, const void* bytes, std::size_t count, off_t position),
                   (file, bytes, count, position))
INTERPOSE_TRANSFER(copy_file_range, Call::copyRange,
                   (int from, off_t* fromPosition, int to, off_t* toPosition, std::size_t count, unsigned flags),
                   (from, fromPosition, to, toPosition, count, flags))

INTERPOSE(int, linkat, Call::link, (int a, const char* from, int b, const char* to, int flags), (a, from, b, to, flags))
INTERPOSE(int, renameat2, Call::rename, (int a, const char* from, int b, const char* to, unsigned flags),
          (a, from, b, to, flags))
INTERPOSE(int, renameat, Call::renamePlain, (int a, const char* from, int b, const char* to), (a, from, b, to))
INTERPOSE(int, unlinkat, Call::unlink, (int folder, const char* name, int flags), (folder, name, flags))
INTERPOSE(int, mkdir, Call::makeFolder, (const char* path, mode_t mode), (path, mode))
INTERPOSE(int, mkdirat, Call::makeFolder, (int folder, const char* name, mode_t mode), (folder, name, mode))
INTERPOSE(int, symlinkat, Call::makeSpecial, (const char* to, int folder, const char* name), (to, folder, name))
INTERPOSE(int, mknodat, Call::makeSpecial, (int folder, const char* name, mode_t mode, dev_t device),
          (folder, name, mode, device))
INTERPOSE(ssize_t, readlink, Call::readLink, (const char* path, char* text, std::size_t size), (path, text, size))
INTERPOSE(ssize_t, readlinkat, Call::readLink, (int folder, const char* name, char* text, std::size_t size),
          (folder, name, text, size))
INTERPOSE(ssize_t, getdents64, Call::listFolder, (int folder, void* bytes, std::size_t size), (folder, bytes, size))

INTERPOSE(int, statx, Call::statx, (int folder, const char* name, int flags, unsigned mask, struct statx* status),
          (folder, name, flags, mask, status))
INTERPOSE(int, stat64, Call::stat, (const char* path, struct stat64* status), (path, status))
INTERPOSE(int, lstat64, Call::stat, (const char* path, struct stat64* status), (path, status))
INTERPOSE(int, fstat64, Call::stat, (int file, struct stat64* status), (file, status))
INTERPOSE(int, fstatat64, Call::stat, (int folder, const char* name, struct stat64* status, int flags),
          (folder, name, status, flags))
INTERPOSE(int, statvfs64, Call::volumeSpace, (const char* path, struct statvfs64* space), (path, space))
INTERPOSE(int, fstatvfs64, Call::volumeSpace, (int file, struct statvfs64* space), (file, space))
INTERPOSE(int, access, Call::access, (const char* path, int rights), (path, rights))
INTERPOSE(int, faccessat, Call::access, (int folder, const char* name, int rights, int flags),
          (folder, name, rights, flags))

INTERPOSE(int, fchmod, Call::changeMode, (int file, mode_t mode), (file, mode))
INTERPOSE(int, fchmodat, Call::changeMode, (int folder, const char* name, mode_t mode, int flags),
          (folder, name, mode, flags))
INTERPOSE(int, fchown, Call::changeOwner, (int file, uid_t user, gid_t group), (file, user, group))
INTERPOSE(int, fchownat, Call::changeOwner, (int folder, const char* name, uid_t user, gid_t group, int flags),
          (folder, name, user, group, flags))
INTERPOSE(int, futimens, Call::changeTimes, (int file, const timespec* times), (file, times))
INTERPOSE(int, utimensat, Call::changeTimes, (int folder, const char* name, const timespec* times, int flags),
          (folder, name, times, flags))
INTERPOSE(int, fsetxattr, Call::setAttribute,
          (int file, const char* name, const void* value, std::size_t size, int flags),
          (file, name, value, size, flags))
INTERPOSE(int, lsetxattr, Call::setAttribute,
          (const char* path, const char* name, const void* value, std::size_t size, int flags),
          (path, name, value, size, flags))
INTERPOSE(ssize_t, flistxattr, Call::readAttribute, (int file, char* names, std::size_t size), (file, names, size))
INTERPOSE(ssize_t, llistxattr, Call::readAttribute, (const char* path, char* names, std::size_t size),
          (path, names, size))
INTERPOSE(ssize_t, fgetxattr, Call::readAttribute, (int file, const char* name, void* value, std::size_t size),
          (file, name, value, size))
INTERPOSE(ssize_t, lgetxattr, Call::readAttribute, (const char* path, const char* name, void* value, std::size_t size),
          (path, name, value, size))
INTERPOSE(int, fremovexattr, Call::removeAttribute, (int file, const char* name), (file, name))

INTERPOSE(int, fsync, Call::flush, (int file), (file))
INTERPOSE(int, syncfs, Call::flush, (int file), (file))
INTERPOSE(int, ftruncate64, Call::truncate, (int file, off_t size), (file, size))
INTERPOSE(off_t, lseek64, Call::seek, (int file, off_t position, int from), (file, position, from))
INTERPOSE(int, memfd_create, Call::memoryFile, (const char* name, unsigned flags), (name, flags))
INTERPOSE(ssize_t, getrandom, Call::random, (void* bytes, std::size_t size, unsigned flags), (bytes, size, flags))
INTERPOSE(int, chdir, Call::changeFolder, (const char* path), (path))
INTERPOSE(std::FILE*, fopen64, Call::openStream, (const char* path, const char* mode), (path, mode))
INTERPOSE(std::FILE*, popen, Call::openPipe, (const char* command, const char* mode), (command, mode))
INTERPOSE(int, pipe2, Call::makePipe, (int* ends, int flags), (ends, flags))
INTERPOSE(int, poll, Call::poll, (pollfd * descriptors, nfds_t count, int timeout), (descriptors, count, timeout))

EXPORTED int folidex_mkostemp64(char* pattern, int flags) asm("mkostemp64");
int folidex_mkostemp64(char* pattern, int flags)
{
    static const auto next = following<int(char*, int)>("mkostemp64");
    const bool fails = judge(Call::create, __builtin_return_address(0)) == Verdict::fails;
    const int file = fails ? -1 : next(pattern, flags);
    if (armed && file != -1) {
        std::strncpy(report.temporaryFile.data(), pattern, report.temporaryFile.size() - 1);
    }
    return file;
}

// posix_spawn(3) answers the error itself.
EXPORTED int folidex_posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                                 const posix_spawnattr_t* attributes, char* const* arguments,
                                 char* const* environment) asm("posix_spawn");
int folidex_posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                        const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment)
{
    static const auto next = following<decltype(posix_spawn)>("posix_spawn");
    const bool fails = judge(Call::spawn, __builtin_return_address(0)) == Verdict::fails;
    return fails ? errno : next(child, path, actions, attributes, arguments, environment);
}

// With ECHILD, as in a host that has its children reaped: the child has ended, how isn't known (wait(2), ECHILD).
EXPORTED int folidex_pclose(std::FILE* pipe) asm("pclose");
int folidex_pclose(std::FILE* pipe)
{
    static const auto next = following<int(std::FILE*)>("pclose");
    const bool fails = judge(Call::closePipe, __builtin_return_address(0)) == Verdict::fails;
    const int status = next(pipe);
    if (fails) {
        errno = plan.error;
    }
    return fails ? -1 : status;
}

EXPORTED pid_t folidex_waitpid(pid_t child, int* status, int flags) asm("waitpid");
pid_t folidex_waitpid(pid_t child, int* status, int flags)
{
    static const auto next = following<pid_t(pid_t, int*, int)>("waitpid");
    const bool fails = judge(Call::waitChild, __builtin_return_address(0)) == Verdict::fails;
    if (!fails || plan.error == ECHILD) {
        const pid_t ended = next(child, status, flags);
        if (!fails) {
            return ended;
        }
    }
    errno = plan.error;
    return -1;
}

// The archive functions' second is spared.
EXPORTED int folidex_nanosleep(const timespec* time, timespec* rest) asm("nanosleep");
int folidex_nanosleep(const timespec* time, timespec* rest)
{
    static const auto next = following<int(const timespec*, timespec*)>("nanosleep");
    return armed ? 0 : next(time, rest);
}

// The C library's own, which need no dlsym(3): that allocates itself.
extern "C" void* realMalloc(std::size_t size) asm("__libc_malloc");
extern "C" void* realCalloc(std::size_t number, std::size_t size) asm("__libc_calloc");
extern "C" void* realRealloc(void* block, std::size_t size) asm("__libc_realloc");

EXPORTED void* folidex_malloc(std::size_t size) asm("malloc");
void* folidex_malloc(std::size_t size)
{
    return armed && judge(Call::allocate, nullptr) == Verdict::fails ? nullptr : realMalloc(size);
}

EXPORTED void* folidex_calloc(std::size_t number, std::size_t size) asm("calloc");
void* folidex_calloc(std::size_t number, std::size_t size)
{
    return armed && judge(Call::allocate, nullptr) == Verdict::fails ? nullptr : realCalloc(number, size);
}

EXPORTED void* folidex_realloc(void* block, std::size_t size) asm("realloc");
void* folidex_realloc(void* block, std::size_t size)
{
    return armed && judge(Call::allocate, nullptr) == Verdict::fails ? nullptr : realRealloc(block, size);
}
