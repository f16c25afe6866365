// Makes calls of the code under test fail, or does something just before one of them. Linked into a test program, whose
// functions the dynamic linker finds before the C library's of the same names.
//
// While it is armed, calls are counted by kind on the arming thread: allocations whoever makes them, all others when
// they come from the code under test itself.
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
    close,   // which closes all the same
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
    none
};

constexpr std::size_t callCount = static_cast<std::size_t>(Call::none);
constexpr int shortCount = -1; // in an error's place: half of what was asked for is done

struct FaultPlan {
    const void* code = nullptr;         // an address in the code under test
    std::array<int, callCount> lacks{}; // an errno value for each kind that the system doesn't have at all
    Call call = Call::none;             // the `at`-th call of this kind, from 1, fails with `error`
    unsigned at = 0;
    int error = 0;
    bool lasts = false;     // so do all later ones of the kind
    unsigned secondAt = 0;  // and, with EIO, this one of all kinds but allocations, counted from the first that failed
    unsigned intrudeAt = 0; // `intrude` is called before this one of all kinds but allocations
    void (*intrude)() = nullptr;
};

struct FaultReport {
    std::array<unsigned, callCount> calls{};
    unsigned total = 0;                   // of all kinds but allocations
    unsigned sinceFault = 0;              // of those, after the first that failed
    bool struck = false;                  // whether the planned call, or both of them, were made and did fail
    bool lostData = false;                // whether a close failed that was the first for a written file
    std::array<char, 64> temporaryFile{}; // the last one that was made by mkostemp(3), if any
};

void armFaults(const FaultPlan& plan);
FaultReport disarmFaults();

} // namespace folidex::test
