// The walk goes through the source, and a stack of folders follows it in the target. A folder's files are copied as it
// is read, its folders afterwards, and its metadata come when the walk leaves it: its times wouldn't stay, and a
// read-only folder couldn't be filled.

#include "platform/linux/copy_tree.h"

#include "platform/linux/removal_check.h"
#include "platform/posix/flush.h"
#include "platform/posix/folder_stack.h"
#include "platform/posix/hard_links.h"
#include "platform/posix/moved_source.h"
#include "platform/posix/tree_walk.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

namespace platform::linux_os {

using posix::CopyRecord;
using posix::Descriptor;
using posix::Failure;
using posix::Identity;
using posix::openFile;
using posix::OpenFile;
using posix::replacedMeanwhile;
using posix::requireRest;
using posix::TreeEntry;
using posix::waitUntilTimestampSettles;

namespace {

Failure copyLink(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName)
{
    std::string leadsTo(256, '\0');
    for (;;) {
        const auto size = readlinkat(sourceFolder, sourceName, leadsTo.data(), leadsTo.size());
        if (size < 0) {
            return Failure::ofSource(errno);
        }
        if (static_cast<std::size_t>(size) < leadsTo.size()) {
            leadsTo.resize(static_cast<std::size_t>(size));
            break;
        }
        leadsTo.resize(leadsTo.size() * 2);
    }
    return symlinkat(leadsTo.c_str(), targetFolder, targetName) == 0 ? Failure{} : Failure::ofTarget(errno);
}

class TreeCopy : public posix::TreeVisitor {
public:
    TreeCopy(const CopyOptions& options, const TreeTarget& target, CopyRecord& copied)
        : options_(options), flushesEach_(options.isDurable && !posix::isFlushedAsAWhole(target.folder)),
          files_(options, flushesEach_), target_(target), targets_(target.folder), copied_(copied)
    {
    }

    Failure visit(const TreeEntry& entry) override;
    Failure choose(const TreeEntry& folder, Choice& choice) override;
    Failure enter(const TreeEntry& folder, int opened) override;
    Failure leave(const TreeEntry& folder, int left, Next& next) override;
    Failure failed(const TreeEntry& entry, int error) override;

    // The source's.
    const struct stat& rootStatus() const { return rootStatus_; }

private:
    struct Level {
        struct stat status; // of the source's folder, from before its entries were read
        bool mayBeEmptied = false;
    };

    Failure copyFile(const TreeEntry& entry);
    Failure copySpecialItem(const TreeEntry& entry);
    Failure start(const struct stat& status);
    Failure makeTarget(const TreeEntry& folder);
    Failure requireCopyable(const TreeEntry& entry);
    void finish(const TreeEntry& entry, const struct stat& status, bool isLinked);
    void record(const TreeEntry& entry, const struct stat& status);
    bool link(const TreeEntry& entry, const struct stat& status)
    {
        return links_.link(status, target_.folder, targets_.folder(), entry.name);
    }

    CopyOptions options_;
    bool flushesEach_;
    FileCopier files_;
    TreeTarget target_;
    posix::FolderStack targets_;
    posix::HardLinks links_;
    CopyRecord& copied_;
    Owner defaultOwner_; // whom the entries belong to as they are made
    struct stat rootStatus_ {};
    std::vector<Level> levels_;
};

Failure TreeCopy::visit(const TreeEntry& entry)
{
    if (Failure refused = requireCopyable(entry)) {
        return refused;
    }
    return entry.type == DT_REG ? copyFile(entry) : copySpecialItem(entry);
}

// What has vanished by now could as well have vanished before it was listed. ESTALE: NFS says so.
Failure TreeCopy::failed(const TreeEntry& entry, int error)
{
    const bool hasVanished = error == ENOENT || error == ESTALE;
    return hasVanished && !options_.isMove && !entry.isRoot() ? Failure{} : Failure::ofSource(error);
}

Failure TreeCopy::copyFile(const TreeEntry& entry)
{
    OpenFile source;
    if (Failure unopened = openFile(entry.folder, entry.name, source)) {
        return unopened.error != 0 ? failed(entry, unopened.error) : std::move(unopened);
    }
    if (Failure failure = options_.isMove ? requireRest(source) : Failure{}) {
        return failure;
    }
    const bool isLinked = link(entry, source.status);
    if (Failure failure = isLinked ? Failure{} : files_.copy(source, targets_.folder(), entry.name, defaultOwner_)) {
        return failure;
    }
    finish(entry, source.status, isLinked);
    return {};
}

Failure TreeCopy::copySpecialItem(const TreeEntry& entry)
{
    struct stat status {};
    if (fstatat(entry.folder, entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return failed(entry, errno);
    }
    const bool isLinked = link(entry, status);
    const int target = targets_.folder();
    Failure failure = isLinked ? Failure{} : copySpecial(entry.folder, entry.name, target, entry.name, status);
    if (failure) { // of a link that has vanished meanwhile nothing was made
        const bool isOfSource = failure.side == Failure::Side::source && failure.error != 0;
        return isOfSource ? failed(entry, failure.error) : std::move(failure);
    }
    finish(entry, status, isLinked);
    return {};
}

void TreeCopy::finish(const TreeEntry& entry, const struct stat& status, bool isLinked)
{
    if (!isLinked && status.st_nlink > 1) {
        links_.remember(status, entry.path());
    }
    record(entry, status);
}

Failure TreeCopy::choose(const TreeEntry& folder, Choice&)
{
    return requireCopyable(folder);
}

// Of an empty folder nobody needs to be able to remove anything.
Failure TreeCopy::requireCopyable(const TreeEntry& entry)
{
    if (target_.name == entry.name) {
        return Failure::because(intoItself).at(entry.folderPath());
    }
    if (!options_.isMove || entry.isRoot()) {
        return {};
    }
    Level& level = levels_.back();
    const int error = level.mayBeEmptied ? 0 : errorOfRemovingFrom(entry.folder);
    if (error != 0) {
        return Failure::ofSource(error).at(entry.folderPath());
    }
    level.mayBeEmptied = true;
    return Failure::ofSource(errorOfRemovingEntry(entry.folder, level.status, entry.name));
}

Failure TreeCopy::enter(const TreeEntry& folder, int opened)
{
    struct stat status {};
    if (fstat(opened, &status) != 0) {
        return Failure::ofSource(errno);
    }
    if (Identity::of(status) == target_.place) {
        return Failure::because(intoItself);
    }
    if (Failure failed = options_.isMove ? waitUntilTimestampSettles(opened, status) : Failure{}) {
        return failed;
    }
    levels_.push_back({status});
    record(folder, status);
    return folder.isRoot() ? start(status) : makeTarget(folder);
}

// New entries belong to whom the root belongs to: the set-group-ID bit of a folder above was handed down to it, or else
// plays no part.
Failure TreeCopy::start(const struct stat& status)
{
    rootStatus_ = status;
    struct stat made {};
    if (fstat(targets_.folder(), &made) != 0) {
        return Failure::ofTarget(errno);
    }
    defaultOwner_ = Owner::of(made);
    return {};
}

Failure TreeCopy::makeTarget(const TreeEntry& folder)
{
    if (mkdirat(targets_.folder(), folder.name, S_IRWXU) != 0) {
        return Failure::ofTarget(errno);
    }
    return Failure::ofTarget(targets_.enter(folder.name));
}

void TreeCopy::record(const TreeEntry& entry, const struct stat& status)
{
    if (options_.needsRecord()) {
        copied_.add(entry.place(), status);
    }
}

Failure TreeCopy::leave(const TreeEntry& folder, int left, Next&)
{
    const struct stat status = levels_.back().status;
    levels_.pop_back();
    int error = 0;
    const Descriptor inner = folder.isRoot() ? Descriptor() : targets_.leave(error);
    if (error != 0) {
        return Failure::ofTarget(error);
    }
    const int target = folder.isRoot() ? targets_.folder() : inner.get();
    if (Failure failed = keepMetadata(left, target, status, defaultOwner_, options_.isMove)) {
        return failed;
    }
    return Failure::ofTarget(flushesEach_ ? posix::flushFolder(target) : 0);
}

} // namespace

Failure FileCopier::fill(const OpenFile& source, int target, Owner current)
{
    if (Failure failed = data_.copy(source.descriptor.get(), target, source.status, options_.isMove)) {
        return failed;
    }
    if (Failure failed = keepMetadata(source.descriptor.get(), target, source.status, current, options_.isMove)) {
        return failed;
    }
    const int error = flushesEach_ ? posix::flushFile(target) : 0;
    return Failure::ofTarget(error);
}

Failure FileCopier::copy(const OpenFile& source, int targetFolder, const char* name, Owner defaultOwner)
{
    Descriptor target = posix::openAt(targetFolder, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (!target) {
        return Failure::ofTarget(errno);
    }
    if (Failure failed = fill(source, target.get(), defaultOwner)) {
        return failed;
    }
    return Failure::ofTarget(target.close());
}

Failure copySpecial(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                    const struct stat& status)
{
    if (S_ISSOCK(status.st_mode)) {
        return Failure::because("a socket can't be copied");
    }
    if (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) {
        return Failure::because(replacedMeanwhile);
    }
    if (S_ISLNK(status.st_mode)) {
        if (Failure failed = copyLink(sourceFolder, sourceName, targetFolder, targetName)) {
            return failed;
        }
    } else if (mknodat(targetFolder, targetName, (status.st_mode & S_IFMT) | S_IRUSR | S_IWUSR, status.st_rdev) != 0) {
        return Failure::ofTarget(errno);
    }
    return keepEntryMetadata(sourceFolder, sourceName, targetFolder, targetName, status);
}

Failure copyTree(const CopyOptions& options, int sourceFolder, const char* name, const TreeTarget& target,
                 CopyRecord& copied, struct stat& status)
{
    TreeCopy copy(options, target, copied);
    Failure failed = walkTree(sourceFolder, name, copy, posix::Names::allFirst);
    status = copy.rootStatus();
    return failed;
}

} // namespace platform::linux_os
