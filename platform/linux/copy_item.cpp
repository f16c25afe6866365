#include "platform/posix/copy_item.h"

#include "platform/linux/copy_data.h"
#include "platform/linux/copy_metadata.h"
#include "platform/posix/access_lists.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>

namespace platform::posix {

using linux_os::MetadataHolder;
using linux_os::ownDescriptors;

namespace {

constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;

Descriptor make(const FileTarget& target)
{
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
    return target.name != nullptr ? openAt(target.folder, target.name, flags, ownerOnly)
                                  : makeUnnamed(target.folder, O_WRONLY);
}

} // namespace

struct ItemCopier::Memory {
    linux_os::DataCopier data{};
    std::optional<struct stat> made{}; // an item whose owner all new ones have

    bool knowOwner(int item)
    {
        struct stat status {};
        if (!made && fstat(item, &status) == 0) {
            made = status;
        }
        return made.has_value();
    }
};

ItemCopier::ItemCopier(const CopyOptions& options, bool flushesEach)
    : isMove_(options.isMove), flushesEach_(flushesEach), memory_(new Memory)
{
}

ItemCopier::~ItemCopier() = default;

Failure ItemCopier::makeCopy(const OpenFile& source, const FileTarget& target, Descriptor& made)
{
    made = make(target);
    if (!made) {
        return Failure::ofTarget(errno);
    }
    if (target.mayInherit) {
        dropAccessLists(made.get());
    }
    const int file = source.descriptor.get();
    off_t copied = 0;
    if (Failure failure = memory_->data.copy(file, made.get(), source.status, copied)) {
        return failure;
    }
    if (Failure failure = requireWhole(source, copied)) {
        return failure;
    }
    return copyMetadata(file, source.status, made.get());
}

Failure ItemCopier::copyMetadata(int source, const struct stat& status, int target) const
{
    return memory_->knowOwner(target)
               ? keepMetadata(MetadataHolder(source), MetadataHolder(target), status, *memory_->made, isMove_)
               : Failure::ofTarget(errno);
}

Failure ItemCopier::copySpecialMetadata(int sourceFolder, const char* sourceName, int targetFolder,
                                        const char* targetName, const struct stat& status) const
{
    struct stat made {};
    return fstatat(targetFolder, targetName, &made, AT_SYMLINK_NOFOLLOW) == 0
               ? keepMetadata(MetadataHolder(sourceFolder, sourceName), MetadataHolder(targetFolder, targetName),
                              status, made, isMove_)
               : Failure::ofTarget(errno);
}

// By way of /proc it gets its name, without which it would be of no use.
Descriptor makeUnnamed(int folder, int flags)
{
    if (access(ownDescriptors, X_OK) != 0) {
        errno = EOPNOTSUPP;
        return {};
    }
    return openAt(folder, ".", O_TMPFILE | flags, ownerOnly);
}

int linkUnnamed(int file, int folder, const char* name)
{
    const std::string path = ownDescriptors + std::to_string(file);
    return linkat(AT_FDCWD, path.c_str(), folder, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

} // namespace platform::posix
