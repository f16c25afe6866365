#include "platform/posix/copy_item.h"

#include "platform/posix/flush.h"
#include "platform/posix/item_path.h"
#include "platform/posix/moved_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <utility>

namespace platform::posix {

namespace {

Failure copyLink(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName)
{
    const std::optional<std::string> leadsTo = readLink(sourceFolder, sourceName);
    if (!leadsTo) {
        return Failure::ofSource(errno);
    }
    return symlinkat(leadsTo->c_str(), targetFolder, targetName) == 0 ? Failure{} : Failure::ofTarget(errno);
}

// Reading a FIFO would wait for a writer, and a device has no end: both are made anew.
Failure makeSpecial(int folder, const char* name, const struct stat& status)
{
    constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
    const mode_t type = status.st_mode & S_IFMT;
    const int result =
        S_ISFIFO(type) ? mkfifoat(folder, name, ownerOnly) : mknodat(folder, name, type | ownerOnly, status.st_rdev);
    return result == 0 ? Failure{} : Failure::ofTarget(errno);
}

} // namespace

Failure ItemCopier::open(int folder, const char* name, OpenFile& file) const
{
    Failure failure = openFile(folder, name, file);
    return !failure && isMove_ ? requireRest(file) : std::move(failure);
}

Failure ItemCopier::copyFile(const OpenFile& source, const FileTarget& target, Descriptor& made)
{
    Failure failure = makeCopy(source, target, made);
    return !failure && flushesEach_ ? Failure::ofTarget(flushFile(made.get())) : std::move(failure);
}

Failure ItemCopier::copySpecial(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                                const struct stat& status) const
{
    if (S_ISSOCK(status.st_mode)) {
        return Failure::because("a socket can't be copied");
    }
    if (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) {
        return Failure::because(replacedMeanwhile);
    }
    Failure failure = S_ISLNK(status.st_mode) ? copyLink(sourceFolder, sourceName, targetFolder, targetName)
                                              : makeSpecial(targetFolder, targetName, status);
    return failure ? std::move(failure)
                   : copySpecialMetadata(sourceFolder, sourceName, targetFolder, targetName, status);
}

Failure ItemCopier::finishFolder(int source, const struct stat& status, int target) const
{
    Failure failure = copyMetadata(source, status, target);
    return !failure && flushesEach_ ? Failure::ofTarget(flushFolder(target)) : std::move(failure);
}

} // namespace platform::posix
