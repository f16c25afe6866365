#include "platform/linux/publish.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string_view>

namespace platform::linux_os {

namespace {

int renameAfterLooking(int fromFolder, const char* from, int toFolder, const char* to)
{
    struct stat status {};
    if (fstatat(toFolder, to, &status, AT_SYMLINK_NOFOLLOW) == 0) {
        return EEXIST;
    }
    return errno == ENOENT && renameat(fromFolder, from, toFolder, to) == 0 ? 0 : errno;
}

int renameByLinking(int fromFolder, const char* from, int toFolder, const char* to)
{
    if (linkat(fromFolder, from, toFolder, to, 0) != 0) {
        const bool noHardLinks = errno == EPERM || errno == ENOTSUP || errno == ENOSYS || errno == EMLINK;
        return noHardLinks ? renameAfterLooking(fromFolder, from, toFolder, to) : errno;
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
    return S_ISDIR(status.st_mode) ? renameAfterLooking(fromFolder, from, toFolder, to)
                                   : renameByLinking(fromFolder, from, toFolder, to);
}

int linkUnnamed(int file, int folder, const char* name)
{
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    return linkat(AT_FDCWD, path.c_str(), folder, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

} // namespace platform::linux_os
