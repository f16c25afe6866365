// Makes one call of a process fail, or does something just before it. The library stands before the C library
// (LD_PRELOAD); a driver finds its two functions with dlsym(3), arms it, calls the code under test, and disarms it.
//
// While it is armed, calls are counted by kind on the arming thread: allocations whoever makes them, all others when
// they come from the code under test itself. The n-th one of the chosen kind fails, once.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace folidex::test {

// Kinds of calls; several functions of the C library may be one kind.
enum class Call : std::uint8_t {
    allocate, // malloc, calloc, realloc, and operator new through them
    open,
    create,  // open with O_CREAT, mkostemp
    unnamed, // open with O_TMPFILE
    read,
    write,
    copyRange,
    clone, // ioctl FICLONE
    link,
    rename, // renameat2
    renamePlain,
    unlink,
    makeFolder,
    makeSpecial, // symlinkat, mknodat
    readLink,
    listFolder, // getdents64
    statx,
    stat,        // stat, lstat, fstat, fstatat
    volumeSpace, // statvfs, fstatvfs
    access,
    changeMode,
    changeOwner,
    changeTimes,
    setAttribute,
    readAttribute, // listing them, too
    removeAttribute,
    flush, // fsync, syncfs
    truncate,
    seek,
    controlDescriptor, // fcntl
    memoryFile,
    random,
    changeFolder,
    openStream, // fopen
    openPipe,   // popen
    closePipe,
    makePipe, // pipe2
    spawn,
    waitChild,
    poll,
    count_
};

constexpr std::size_t callCount = static_cast<std::size_t>(Call::count_);

constexpr int shortCount = -1; // in an error's place: half of what was asked for is done

struct FaultPlan {
    std::uintptr_t codeBegin = 0; // the code under test
    std::uintptr_t codeEnd = 0;
    Call call = Call::count_;
    unsigned at = 0;            // 1 is the first call; 0: none fails
    int error = 0;              // errno value or shortCount
    Call denied = Call::count_; // a kind that the system doesn't have at all: every call of it fails
    int deniedError = 0;
    unsigned intrudeAt = 0; // 1 is before the first call of any kind but allocations; 0: never
    void (*intrude)() = nullptr;
};

struct FaultReport {
    std::array<unsigned, callCount> calls{};
    unsigned total = 0;                   // of all kinds but allocations
    bool struck = false;                  // whether the call that was to fail was made and did fail
    std::array<char, 64> temporaryFile{}; // the last one that was made by mkostemp(3), if any
};

using ArmFaults = void (*)(const FaultPlan*);
using DisarmFaults = FaultReport (*)();
constexpr const char* armName = "folidexArmFaults";
constexpr const char* disarmName = "folidexDisarmFaults";

} // namespace folidex::test
