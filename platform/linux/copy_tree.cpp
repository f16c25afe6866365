// The walk goes through the source, and a stack of folders follows it in the target. A folder's files are copied as it
// is read, its folders afterwards, and its metadata come when the walk leaves it: its times wouldn't stay, and a
// read-only folder couldn't be filled.

#include "platform/linux/copy_tree.h"

#include "platform/linux/moved_source.h"
#include "platform/linux/removal_check.h"
#include "platform/posix/flush.h"
#include "platform/posix/folder_stack.h"
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
using posix::TreeEntry;

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
    TreeCopy(const CopyOptions& options, int target, Identity forbidden, CopyRecord& copied)
        : options_(options), flushesEach_(options.isDurable && !posix::isFlushedAsAWhole(target)),
          files_(options, flushesEach_), targets_(target), forbidden_(forbidden), copied_(copied)
    {
    }

    Failure visit(const TreeEntry& entry) override;
    Failure choose(const TreeEntry& folder, Choice& choice) override;
    Failure enter(const TreeEntry& folder, int opened) override;
    Failure leave(const TreeEntry& folder, int left, Next& next) override;

    // The source's.
    const struct stat& rootStatus() const { return rootStatus_; }

private:
    struct Level {
        struct stat status; // of the source's folder, from before its entries were read
        bool mayBeEmptied = false;
    };

    Failure start(const struct stat& status);
    Failure makeTarget(const TreeEntry& folder);
    Failure requireRemovable(const TreeEntry& entry);
    void record(const TreeEntry& entry, const struct stat& status);

    CopyOptions options_;
    bool flushesEach_;
    FileCopier files_;
    posix::FolderStack targets_;
    Identity forbidden_;
    CopyRecord& copied_;
    Owner defaultOwner_; // whom the entries belong to as they are made
    struct stat rootStatus_ {};
    std::vector<Level> levels_;
};

Failure TreeCopy::visit(const TreeEntry& entry)
{
    if (Failure failed = requireRemovable(entry)) {
        return failed;
    }
    struct stat status {};
    const int target = targets_.folder();
    Failure failed = entry.type == DT_REG ? files_.copy(entry.folder, entry.name, target, defaultOwner_, status)
                                          : copySpecial(entry.folder, entry.name, target, entry.name, status);
    if (!failed) {
        record(entry, status);
    }
    return failed;
}

Failure TreeCopy::choose(const TreeEntry& folder, Choice&)
{
    return requireRemovable(folder);
}

// Of an empty folder nobody needs to be able to remove anything.
Failure TreeCopy::requireRemovable(const TreeEntry& entry)
{
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
    if (Identity::of(status) == forbidden_) {
        return Failure::because(intoItself);
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
    if (options_.isMove) {
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
    if (Failure failed = keepMetadata(left, target, status, defaultOwner_)) {
        return failed;
    }
    return Failure::ofTarget(flushesEach_ ? posix::flushFolder(target) : 0);
}

} // namespace

Failure FileCopier::fill(const OpenFile& source, int target, Owner current)
{
    if (Failure failed = data_.copy(source.descriptor.get(), target, source.status)) {
        return failed;
    }
    if (Failure failed = keepMetadata(source.descriptor.get(), target, source.status, current)) {
        return failed;
    }
    const int error = flushesEach_ ? posix::flushFile(target) : 0;
    return Failure::ofTarget(error);
}

Failure FileCopier::copy(int sourceFolder, const char* name, int targetFolder, Owner defaultOwner, struct stat& status)
{
    OpenFile source;
    if (Failure failed = openFile(sourceFolder, name, source)) {
        return failed;
    }
    if (Failure failed = options_.isMove ? waitUntilTimestampSettles(source) : Failure{}) {
        return failed;
    }
    status = source.status;
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
                    struct stat& status)
{
    if (fstatat(sourceFolder, sourceName, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return Failure::ofSource(errno);
    }
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

Failure copyTree(const CopyOptions& options, int sourceFolder, const char* name, int target, Identity forbidden,
                 CopyRecord& copied, struct stat& status)
{
    TreeCopy copy(options, target, forbidden, copied);
    Failure failed = walkTree(sourceFolder, name, copy);
    status = copy.rootStatus();
    return failed;
}

} // namespace platform::linux_os
