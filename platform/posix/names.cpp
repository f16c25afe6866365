#include "platform/posix/names.h"

#include "platform/posix/descriptor.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <linux/fs.h>
#endif

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

namespace platform::posix {

namespace {

// EINVAL or ENOTSUP where the file system doesn't know how to refuse.
int renameInOneStep(int fromFolder, const char* from, int toFolder, const char* to)
{
#ifdef __APPLE__
    return renameatx_np(fromFolder, from, toFolder, to, RENAME_EXCL) == 0 ? 0 : errno;
#else
    return renameat2(fromFolder, from, toFolder, to, RENAME_NOREPLACE) == 0 ? 0 : errno;
#endif
}

// Takes the name by something empty of our own; whoever else wants it finds it taken.
int claim(int folder, const char* name, bool forFolder)
{
    if (forFolder) {
        return mkdirat(folder, name, S_IRWXU) == 0 ? 0 : errno;
    }
    return openAt(folder, name, O_WRONLY | O_CREAT | O_EXCL) ? 0 : errno;
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

int exchange(int fromFolder, const char* from, int toFolder, const char* to)
{
#ifdef __APPLE__
    return renameatx_np(fromFolder, from, toFolder, to, RENAME_SWAP) == 0 ? 0 : errno;
#else
    return renameat2(fromFolder, from, toFolder, to, RENAME_EXCHANGE) == 0 ? 0 : errno;
#endif
}

std::string temporaryName()
{
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz234567";
    std::array<unsigned char, 16> random{};
    [[maybe_unused]] const int result = getentropy(random.data(), random.size()); // fails only where it is filtered
    std::string name = temporaryPrefix;
    for (const unsigned char byte : random) {
        name.push_back(letters[byte % letters.size()]);
    }
    return name;
}

int renameExclusively(int fromFolder, const char* from, int toFolder, const char* to)
{
    const int error = renameInOneStep(fromFolder, from, toFolder, to);
    if (error != EINVAL && error != ENOSYS && error != ENOTSUP) {
        return error;
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
        renameExclusively(folder_, hidden_, folder_, name_);
    }
}

} // namespace platform::posix
