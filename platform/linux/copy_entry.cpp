#include "platform/linux/copy_entry.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace platform::linux_os {

namespace {

// FIFOs don't hold up the opening, terminals don't become the process's own.
constexpr int openWithoutEffect = O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC | O_NONBLOCK;

constexpr const char* exchangedMeanwhile = "the item was exchanged while it was being copied";

CopyFailure copyLink(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName)
{
    std::string leadsTo(256, '\0');
    for (;;) {
        const auto size = readlinkat(sourceFolder, sourceName, leadsTo.data(), leadsTo.size());
        if (size < 0) {
            return CopyFailure::ofSource(errno);
        }
        if (static_cast<std::size_t>(size) < leadsTo.size()) {
            leadsTo.resize(static_cast<std::size_t>(size));
            break;
        }
        leadsTo.resize(leadsTo.size() * 2);
    }
    return symlinkat(leadsTo.c_str(), targetFolder, targetName) == 0 ? CopyFailure{} : CopyFailure::ofTarget(errno);
}

} // namespace

CopyFailure openFile(int folder, const char* name, OpenFile& file)
{
    int descriptor = retried([&] { return openat(folder, name, openWithoutEffect); });
    if (descriptor < 0 && errno == EWOULDBLOCK) {
        // A regular file under lease (fcntl(2), F_SETLEASE): its holder, a file server, is asked to let go.
        descriptor = retried([&] { return openat(folder, name, openWithoutEffect & ~O_NONBLOCK); });
    }
    file.descriptor = Descriptor(descriptor);
    if (!file.descriptor || fstat(file.descriptor.get(), &file.status) != 0) {
        return errno == ELOOP ? CopyFailure::because(exchangedMeanwhile) : CopyFailure::ofSource(errno);
    }
    if (!S_ISREG(file.status.st_mode)) {
        return CopyFailure::because(exchangedMeanwhile);
    }
    return {};
}

CopyFailure EntryCopier::fill(const OpenFile& source, int target, Owner current)
{
    if (const CopyFailure failed = m_data.copy(source.descriptor.get(), target, source.status)) {
        return failed;
    }
    return keepMetadata(source.descriptor.get(), target, source.status, current);
}

CopyFailure EntryCopier::copyFile(int sourceFolder, const char* name, int targetFolder, Owner newcomer)
{
    OpenFile source;
    if (const CopyFailure failed = openFile(sourceFolder, name, source)) {
        return failed;
    }
    const Descriptor target(retried([&] {
        return openat(targetFolder, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    }));
    if (!target) {
        return CopyFailure::ofTarget(errno);
    }
    return fill(source, target.get(), newcomer);
}

CopyFailure copySpecial(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName)
{
    struct stat status {};
    if (fstatat(sourceFolder, sourceName, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return CopyFailure::ofSource(errno);
    }
    if (S_ISSOCK(status.st_mode)) {
        return CopyFailure::because("a socket can't be copied");
    }
    if (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) {
        return CopyFailure::because(exchangedMeanwhile);
    }
    if (S_ISLNK(status.st_mode)) {
        if (const CopyFailure failed = copyLink(sourceFolder, sourceName, targetFolder, targetName)) {
            return failed;
        }
    } else if (mknodat(targetFolder, targetName, (status.st_mode & S_IFMT) | S_IRUSR | S_IWUSR, status.st_rdev) != 0) {
        return CopyFailure::ofTarget(errno);
    }
    return keepEntryMetadata(sourceFolder, sourceName, targetFolder, targetName, status);
}

} // namespace platform::linux_os
