// The walk goes through the source, and a stack of folders follows it in the target. A folder's files are copied as it
// is read, its folders afterwards, and its metadata come when the walk leaves it: its times wouldn't stay, and a
// read-only folder couldn't be filled.

#include "platform/posix/copy_tree.h"

#include "platform/posix/flush.h"
#include "platform/posix/folder_stack.h"
#include "platform/posix/hard_links.h"
#include "platform/posix/moved_source.h"
#include "platform/posix/removal_check.h"
#include "platform/posix/tree_walk.h"

#include <sys/stat.h>

#include <cerrno>
#include <utility>
#include <vector>

namespace platform::posix {

namespace {

class TreeCopy : public TreeVisitor {
public:
    TreeCopy(const CopyOptions& options, const TreeTarget& target, CopyRecord& copied)
        : options_(options), items_(options, options.isDurable && !isFlushedAsAWhole(target.folder)), target_(target),
          targets_(target.folder), copied_(copied)
    {
    }

    Failure visit(const TreeEntry& entry) override;
    Failure choose(const TreeEntry& folder, Choice& choice) override;
    Failure enter(const TreeEntry& folder, int opened) override;
    Failure leave(const TreeEntry& folder, int left, Next& next) override;
    Failure failed(const TreeEntry& entry, int error) override
    {
        return unlessVanished(entry, Failure::ofSource(error));
    }

private:
    struct Level {
        struct stat status; // of the source's folder, from before its entries were read
        bool mayBeEmptied = false;
    };

    Failure copyFile(const TreeEntry& entry);
    Failure copySpecial(const TreeEntry& entry);
    Failure requireCopyable(const TreeEntry& entry);
    Failure unlessVanished(const TreeEntry& entry, Failure failure) const;
    void finish(const TreeEntry& entry, const struct stat& status, bool isLinked);
    void record(const TreeEntry& entry, const struct stat& status);
    bool link(const TreeEntry& entry, const struct stat& status)
    {
        return links_.link(status, target_.folder, targets_.folder(), entry.name);
    }

    CopyOptions options_;
    ItemCopier items_;
    TreeTarget target_;
    FolderStack targets_;
    HardLinks links_;
    CopyRecord& copied_;
    std::vector<Level> levels_;
};

Failure TreeCopy::visit(const TreeEntry& entry)
{
    if (entry.isRoot()) {
        return Failure::because(replacedMeanwhile);
    }
    if (Failure refused = requireCopyable(entry)) {
        return refused;
    }
    return entry.type == DT_REG ? copyFile(entry) : copySpecial(entry);
}

// What has vanished by now could as well have vanished before it was listed. ESTALE: NFS says so. A move sees of the
// folder that it has changed.
Failure TreeCopy::unlessVanished(const TreeEntry& entry, Failure failure) const
{
    const bool hasVanished =
        failure.side == Failure::Side::source && (failure.error == ENOENT || failure.error == ESTALE);
    return hasVanished && !entry.isRoot() ? Failure{} : std::move(failure);
}

Failure TreeCopy::copyFile(const TreeEntry& entry)
{
    OpenFile source;
    if (Failure unopened = items_.open(entry.folder, entry.name, source)) {
        return unlessVanished(entry, std::move(unopened));
    }
    const bool isLinked = link(entry, source.status);
    if (!isLinked) {
        Descriptor made;
        Failure failure = items_.copyFile(source, {.folder = targets_.folder(), .name = entry.name}, made);
        if (!failure) {
            failure = Failure::ofTarget(made.close());
        }
        if (failure) {
            return failure;
        }
    }
    finish(entry, source.status, isLinked);
    return {};
}

Failure TreeCopy::copySpecial(const TreeEntry& entry)
{
    struct stat status {};
    if (Failure unknown = entry.examine(status)) {
        return unlessVanished(entry, std::move(unknown));
    }
    const bool isLinked = link(entry, status);
    if (!isLinked) {
        // Of a link that has vanished meanwhile nothing was made.
        if (Failure failure = items_.copySpecial(entry.folder, entry.name, targets_.folder(), entry.name, status)) {
            return unlessVanished(entry, std::move(failure));
        }
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
    if (Failure failed = options_.isMove ? waitUntilTimestampSettles(opened, status) : Failure{}) {
        return failed;
    }
    levels_.push_back({status});
    record(folder, status);
    if (folder.isRoot()) {
        return {};
    }
    const bool isMade = mkdirat(targets_.folder(), folder.name, S_IRWXU) == 0;
    return Failure::ofTarget(isMade ? targets_.enter(folder.name) : errno);
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
    return items_.finishFolder(left, status, folder.isRoot() ? targets_.folder() : inner.get());
}

} // namespace

Failure copyTree(const CopyOptions& options, int sourceFolder, const char* name, const TreeTarget& target,
                 CopyRecord& copied)
{
    TreeCopy copy(options, target, copied);
    return walkTree(sourceFolder, name, copy, Names::allFirst);
}

} // namespace platform::posix
