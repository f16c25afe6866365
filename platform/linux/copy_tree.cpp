// Two walks side by side, one through the source and one that makes the same folders in the target. A folder's files
// are copied as it is read, its folders afterwards, and its metadata come when the walk leaves it: its times wouldn't
// stay, and a read-only folder couldn't be filled.

#include "platform/linux/copy_tree.h"

#include "platform/linux/publish.h"
#include "platform/linux/remove_tree.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace platform::linux_os {

namespace {

Descriptor duplicate(int descriptor)
{
    return Descriptor(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
}

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

class TreeCopy {
public:
    TreeCopy(const CopyAim& aim, Descriptor source, Descriptor target, Identity forbidden, CopyRecord& copied)
        : aim_(aim), flushesEach_(aim.isDurable && !isFlushedAsAWhole(target.get())), files_(aim, flushesEach_),
          sources_(std::move(source)), targets_(std::move(target)), forbidden_(forbidden), copied_(copied)
    {
    }

    CopyFailure run();

    // Where run() failed, below the roots: "" or "/a/b".
    const std::string& failedPath() const { return failedPath_; }

private:
    CopyFailure start();
    CopyFailure enter(const std::string& name);
    CopyFailure leave();
    CopyFailure finishFolder(int source, int target);
    CopyFailure openLevel();
    CopyFailure copyEntries();
    CopyFailure copyEntry(const DirectoryEntry& entry);
    void record(const std::string& path, const struct stat& status);

    CopyFailure at(std::string path, CopyFailure failure)
    {
        failedPath_ = std::move(path);
        return failure;
    }

    CopyAim aim_;
    bool flushesEach_;
    FileCopier files_;
    TreeWalk sources_;
    TreeWalk targets_;
    Identity forbidden_;
    CopyRecord& copied_;
    Owner newcomer_;                  // whom the entries belong to as they are made
    std::vector<struct stat> levels_; // of the source's folders, from before their entries were read
    DirectoryReader reader_;
    std::string failedPath_;
};

CopyFailure TreeCopy::run()
{
    CopyFailure failed = start();
    while (!failed) {
        if (const std::optional<std::string> name = sources_.takeKept()) {
            failed = enter(*name);
        } else if (sources_.isAtRoot()) {
            return finishFolder(sources_.folder(), targets_.folder());
        } else {
            failed = leave();
        }
    }
    return failed;
}

CopyFailure TreeCopy::start()
{
    struct stat made {};
    if (fstat(targets_.folder(), &made) != 0) {
        return CopyFailure::ofTarget(errno);
    }
    // New entries belong to whom the root belongs to: the set-group-ID bit of a folder above was handed down to it,
    // or else plays no part.
    newcomer_ = Owner::of(made);
    return openLevel();
}

CopyFailure TreeCopy::enter(const std::string& name)
{
    const auto failed = [&](CopyFailure failure) { return at(sources_.path(), failure); };
    if (const int error = sources_.enter(name)) {
        return at(sources_.pathOf(name), CopyFailure::ofSource(error));
    }
    if (mkdirat(targets_.folder(), name.c_str(), S_IRWXU) != 0) {
        return failed(CopyFailure::ofTarget(errno));
    }
    if (const int error = targets_.enter(name)) {
        return failed(CopyFailure::ofTarget(error));
    }
    return openLevel();
}

CopyFailure TreeCopy::openLevel()
{
    struct stat status {};
    if (fstat(sources_.folder(), &status) != 0) {
        return at(sources_.path(), CopyFailure::ofSource(errno));
    }
    if (Identity::of(status) == forbidden_) {
        return at(sources_.path(), CopyFailure::because("a folder can't be put into itself"));
    }
    levels_.push_back(status);
    record(sources_.path(), status);
    return copyEntries();
}

// Everything but folders, whose names are kept for later.
CopyFailure TreeCopy::copyEntries()
{
    bool isFirst = true;
    reader_.start(sources_.folder());
    while (const DirectoryEntry* entry = reader_.next()) {
        if (aim_.isMove && std::exchange(isFirst, false)) {
            if (const int error = errorOfRemovingFrom(sources_.folder())) {
                return at(sources_.path(), CopyFailure::ofSource(error));
            }
        }
        if (const CopyFailure failed = copyEntry(*entry)) {
            return at(sources_.pathOf(entry->name), failed);
        }
    }
    return reader_.error() == 0 ? CopyFailure{} : at(sources_.path(), CopyFailure::ofSource(reader_.error()));
}

CopyFailure TreeCopy::copyEntry(const DirectoryEntry& entry)
{
    struct stat status {};
    unsigned char type = entry.type;
    if (type == DT_UNKNOWN) {
        if (fstatat(sources_.folder(), entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return CopyFailure::ofSource(errno);
        }
        type = static_cast<unsigned char>(IFTODT(status.st_mode));
    }
    if (aim_.isMove) {
        if (const int error = errorOfRemovingEntry(sources_.folder(), levels_.back(), entry.name)) {
            return CopyFailure::ofSource(error);
        }
    }
    if (type == DT_DIR) {
        sources_.keep(entry.name);
        return {};
    }
    const CopyFailure failed = type == DT_REG
                                   ? files_.copy(sources_.folder(), entry.name, targets_.folder(), newcomer_, status)
                                   : copySpecial(sources_.folder(), entry.name, targets_.folder(), entry.name, status);
    if (!failed && aim_.isMove) {
        record(sources_.pathOf(entry.name), status);
    }
    return failed;
}

void TreeCopy::record(const std::string& path, const struct stat& status)
{
    if (aim_.isMove) {
        copied_.add(path, status);
    }
}

CopyFailure TreeCopy::leave()
{
    const std::string path = sources_.path();
    int error = 0;
    const Descriptor source = sources_.leave(error);
    if (!source) {
        return at(path, CopyFailure::ofSource(error));
    }
    const Descriptor target = targets_.leave(error);
    return target ? at(path, finishFolder(source.get(), target.get())) : at(path, CopyFailure::ofTarget(error));
}

CopyFailure TreeCopy::finishFolder(int source, int target)
{
    const struct stat status = levels_.back();
    levels_.pop_back();
    if (const CopyFailure failed = keepMetadata(source, target, status, newcomer_)) {
        return failed;
    }
    const int error = flushesEach_ ? flushFolder(target) : 0;
    return error == 0 ? CopyFailure{} : CopyFailure::ofTarget(error);
}

} // namespace

CopyFailure FileCopier::fill(const OpenFile& source, int target, Owner current)
{
    if (const CopyFailure failed = data_.copy(source.descriptor.get(), target, source.status)) {
        return failed;
    }
    if (const CopyFailure failed = keepMetadata(source.descriptor.get(), target, source.status, current)) {
        return failed;
    }
    const bool isDone = !flushesEach_ || retried([&] { return fsync(target); }) == 0;
    return isDone ? CopyFailure{} : CopyFailure::ofTarget(errno);
}

CopyFailure FileCopier::copy(int sourceFolder, const char* name, int targetFolder, Owner newcomer, struct stat& status)
{
    OpenFile source;
    if (const CopyFailure failed = openFile(sourceFolder, name, source)) {
        return failed;
    }
    if (const CopyFailure failed = aim_.isMove ? requireRest(source) : CopyFailure{}) {
        return failed;
    }
    status = source.status;
    Descriptor target(retried([&] {
        return openat(targetFolder, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    }));
    if (!target) {
        return CopyFailure::ofTarget(errno);
    }
    if (const CopyFailure failed = fill(source, target.get(), newcomer)) {
        return failed;
    }
    const int error = target.close();
    return error == 0 ? CopyFailure{} : CopyFailure::ofTarget(error);
}

CopyFailure copySpecial(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                        struct stat& status)
{
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

Outcome copyTree(const CopyAim& aim, int source, int target, std::string_view sourcePath, std::string_view targetPath,
                 Identity forbidden, CopyRecord& copied)
{
    Descriptor sourceRoot = duplicate(source);
    Descriptor targetRoot = duplicate(target);
    if (!sourceRoot || !targetRoot) {
        return systemFailure(aim.action(), sourcePath, errno);
    }
    TreeCopy copy(aim, std::move(sourceRoot), std::move(targetRoot), forbidden, copied);
    if (const CopyFailure failed = copy.run()) {
        return failed.outcome(aim.action(), std::string(sourcePath) + copy.failedPath(),
                              std::string(targetPath) + copy.failedPath());
    }
    return Outcome::success();
}

} // namespace platform::linux_os
