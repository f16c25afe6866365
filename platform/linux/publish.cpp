#include "platform/linux/publish.h"

#include "platform/linux/descriptor.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string_view>

namespace platform::linux_os {

namespace {

// Takes the name by something empty of our own; whoever else wants it finds it taken.
int claim(int folder, const char* name, bool forFolder)
{
    if (forFolder) {
        return mkdirat(folder, name, S_IRWXU) == 0 ? 0 : errno;
    }
    return Descriptor(retried([&] { return openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0); }))
               ? 0
               : errno;
}

int renameOverClaim(int fromFolder, const char* from, int toFolder, const char* to, bool isFolder)
{
    if (const int error = claim(toFolder, to, isFolder)) {
        return error;
    }
    struct stat claimed {};
    int error = isFolder || fstatat(toFolder, to, &claimed, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
    if (error == 0 && claimed.st_size != 0) {
        return EEXIST; // somebody has put something else there
    }
    if (error == 0 && renameat(fromFolder, from, toFolder, to) == 0) {
        return 0;
    }
    error = error == 0 ? errno : error;
    for (int attempt = 0; attempt < 2 && unlinkat(toFolder, to, isFolder ? AT_REMOVEDIR : 0) != 0; ++attempt) {
        // Again for what passes: the name must be free for another way.
    }
    // A file system whose rename doesn't replace (SFTP servers) needs no claim.
    const bool mayNeverReplace = error == EEXIST || error == EPERM;
    return mayNeverReplace && renameat(fromFolder, from, toFolder, to) == 0 ? 0 : error;
}

int renameByLinking(int fromFolder, const char* from, int toFolder, const char* to)
{
    if (linkat(fromFolder, from, toFolder, to, 0) != 0) {
        const bool noHardLinks = errno == EPERM || errno == ENOTSUP || errno == ENOSYS || errno == EMLINK;
        return noHardLinks ? renameOverClaim(fromFolder, from, toFolder, to, false) : errno;
    }
    if (unlinkat(fromFolder, from, 0) != 0) {
        const int error = errno;
        unlinkat(toFolder, to, 0);
        return error;
    }
    return 0;
}

} // namespace

std::string temporaryName()
{
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz234567";
    std::array<unsigned char, 16> random{};
    if (getrandom(random.data(), random.size(), GRND_NONBLOCK) < 0) {
        // Early in the system's start there is no randomness yet; a clock will do, for a taken name is noticed.
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        std::memcpy(random.data(), &now.tv_nsec, sizeof now.tv_nsec);
    }
    std::string name = ".folidex-";
    for (const unsigned char byte : random) {
        name.push_back(letters[byte % letters.size()]);
    }
    return name;
}

int renameWithoutReplacing(int fromFolder, const char* from, int toFolder, const char* to)
{
    if (renameat2(fromFolder, from, toFolder, to, RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) {
        return errno;
    }
    struct stat status {};
    if (fstatat(fromFolder, from, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    return S_ISDIR(status.st_mode) ? renameOverClaim(fromFolder, from, toFolder, to, true)
                                   : renameByLinking(fromFolder, from, toFolder, to);
}

Hiding::Hiding(int folder, const char* name, const std::string& hidden) noexcept
    : folder_(folder), name_(name), hidden_(hidden.c_str())
{
    if (hidden.empty()) {
        return;
    }
    isHidden_ = renameat(folder, name, folder, hidden_) == 0;
    error_ = isHidden_ ? 0 : errno;
}

Hiding::~Hiding()
{
    if (isHidden_) {
        renameWithoutReplacing(folder_, hidden_, folder_, name_);
    }
}

int linkUnnamed(int file, int folder, const char* name)
{
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    return linkat(AT_FDCWD, path.c_str(), folder, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

int errorOfClosing(int file)
{
    for (;;) {
        Descriptor second(fcntl(file, F_DUPFD_CLOEXEC, 0));
        const int error = second ? second.close() : errno;
        if (error != EINTR) {
            return error;
        }
    }
}

bool isFlushedAsAWhole(int item)
{
    struct statfs status {};
    if (fstatfs(item, &status) != 0) {
        return false;
    }
    switch (status.f_type) {
    case EXT4_SUPER_MAGIC: // ext2 and ext3 too
    case XFS_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case TMPFS_MAGIC:
        return true;
    default:
        return false;
    }
}

int flushFolder(int folder)
{
    if (retried([=] { return fsync(folder); }) != 0 && errno != EINVAL) {
        return errno;
    }
    // XFS flushes a folder with success although it has shut itself down, as it does when its disk fails; it is opening
    // that says so.
    const Descriptor again(retried([=] { return openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    return again ? 0 : errno;
}

int flushEntries(int folder, int inside)
{
    const Descriptor readable(retried([=] { return openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (readable) {
        return flushFolder(readable.get());
    }
    if (inside < 0) {
        const int error = errno;
        sync();
        return error == EACCES ? 0 : error;
    }
    return retried([=] { return syncfs(inside); }) == 0 ? 0 : errno;
}

} // namespace platform::linux_os
