// A file is cloned where the file system can (APFS): the copy shares the blocks, and differs from its source only in
// what clonefile(2) doesn't take over, which copyfile(3) adds. Elsewhere copyfile(3) does all of it. Whoever isn't the
// owner can't give an item the owner that it had; its set-id bits would then lend somebody else's rights, and are
// dropped.

#include "platform/posix/copy_item.h"

#include <copyfile.h>
#include <fcntl.h>
#include <sys/clonefile.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace platform::posix {

namespace {

// What copyfile(3) reports may be about either side.
Failure failureOfCopying(int error)
{
    const bool isOfTarget = error == ENOSPC || error == EDQUOT || error == EFBIG || error == EROFS || error == EPERM;
    return isOfTarget ? Failure::ofTarget(error) : Failure::ofSource(error);
}

Failure dropLentRights(int target, const struct stat& source)
{
    struct stat made {};
    if (fstat(target, &made) != 0) {
        return Failure::ofTarget(errno);
    }
    const bool lends = ((made.st_mode & S_ISUID) != 0 && made.st_uid != source.st_uid) ||
                       (S_ISREG(made.st_mode) && (made.st_mode & S_ISGID) != 0 && made.st_gid != source.st_gid);
    return !lends || fchmod(target, made.st_mode & 01777U) == 0 ? Failure{} : Failure::ofTarget(errno);
}

Failure copyParts(int source, const struct stat& status, int target, copyfile_flags_t parts)
{
    return fcopyfile(source, target, nullptr, parts) == 0 ? dropLentRights(target, status) : failureOfCopying(errno);
}

// A clone gets the flags of its source: under a lock nothing could be added to it any more.
bool isCloned(int source, const struct stat& status, int folder, const char* name, Descriptor& made)
{
    constexpr unsigned locks = UF_IMMUTABLE | UF_APPEND | SF_IMMUTABLE | SF_APPEND;
    if ((status.st_flags & locks) != 0 || fclonefileat(source, folder, name, 0) != 0) {
        return false;
    }
    made = openAt(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!made || copyParts(source, status, made.get(), COPYFILE_SECURITY)) {
        made.close();
        unlinkat(folder, name, 0);
        return false;
    }
    return true;
}

// Where it can't keep holes copyfile(3) says so, or copies nothing. A compressed file, too, has fewer blocks than
// bytes.
bool isCopiedWithHoles(int source, const struct stat& status, int target)
{
    constexpr off_t block = 512; // stat(2), st_blocks
    struct stat made {};
    return status.st_blocks * block < status.st_size && (status.st_flags & UF_COMPRESSED) == 0 &&
           fcopyfile(source, target, nullptr, COPYFILE_DATA_SPARSE) == 0 && fstat(target, &made) == 0 &&
           made.st_size == status.st_size;
}

Failure copyEverything(int source, const struct stat& status, int folder, const char* name, Descriptor& made)
{
    if (isCloned(source, status, folder, name, made)) {
        return {};
    }
    made = openAt(folder, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (!made) {
        return Failure::ofTarget(errno);
    }
    if (isCopiedWithHoles(source, status, made.get())) {
        return copyParts(source, status, made.get(), COPYFILE_METADATA);
    }
    const bool isAsBefore =
        lseek(source, 0, SEEK_SET) == 0 && lseek(made.get(), 0, SEEK_SET) == 0 && ftruncate(made.get(), 0) == 0;
    return isAsBefore ? copyParts(source, status, made.get(), COPYFILE_ALL) : Failure::ofTarget(errno);
}

} // namespace

struct ItemCopier::Memory {};

ItemCopier::ItemCopier(const CopyOptions& options, bool flushesEach)
    : isMove_(options.isMove), flushesEach_(flushesEach)
{
}

ItemCopier::~ItemCopier() = default;

// What an access list hands down is kept, as by the Finder.
Failure ItemCopier::makeCopy(const OpenFile& source, const FileTarget& target, Descriptor& made)
{
    if (target.name == nullptr) {
        return Failure::ofTarget(EOPNOTSUPP);
    }
    if (Failure failure = copyEverything(source.descriptor.get(), source.status, target.folder, target.name, made)) {
        return failure;
    }
    struct stat copy {};
    return fstat(made.get(), &copy) == 0 ? requireWhole(source, copy.st_size) : Failure::ofTarget(errno);
}

Failure ItemCopier::copyMetadata(int source, const struct stat& status, int target) const
{
    return copyParts(source, status, target, COPYFILE_METADATA);
}

// A FIFO isn't opened, for that may wait for its other end; it has hardly more than owner, mode and times.
Failure ItemCopier::copySpecialMetadata(int sourceFolder, const char* sourceName, int targetFolder,
                                        const char* targetName, const struct stat& status) const
{
    if (S_ISLNK(status.st_mode)) {
        constexpr int itself = O_RDONLY | O_SYMLINK | O_NONBLOCK;
        const Descriptor source = openAt(sourceFolder, sourceName, itself);
        const Descriptor target = openAt(targetFolder, targetName, itself);
        if (!source) {
            return Failure::ofSource(errno);
        }
        const bool isDone = target && fcopyfile(source.get(), target.get(), nullptr, COPYFILE_METADATA) == 0;
        return isDone ? Failure{} : Failure::ofTarget(errno);
    }
    const bool keepsOwner = fchownat(targetFolder, targetName, status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW) == 0;
    const mode_t mode = status.st_mode & (keepsOwner ? 07777U : 01777U);
    const std::array<timespec, 2> times{status.st_atimespec, status.st_mtimespec};
    const bool isDone = fchmodat(targetFolder, targetName, mode, AT_SYMLINK_NOFOLLOW) == 0 &&
                        utimensat(targetFolder, targetName, times.data(), AT_SYMLINK_NOFOLLOW) == 0;
    return isDone ? Failure{} : Failure::ofTarget(errno);
}

// There are no unnamed files.
Descriptor makeUnnamed(int, int)
{
    errno = EOPNOTSUPP;
    return {};
}

int linkUnnamed(int, int, const char*)
{
    return EOPNOTSUPP;
}

} // namespace platform::posix
