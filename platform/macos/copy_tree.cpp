// One walk through the source, beside which the same folders are made and left in the target. A folder's metadata come
// when the walk leaves it: its times wouldn't stay, and a read-only folder couldn't be filled.

#include "platform/macos/copy_tree.h"

#include "platform/macos/system_copy.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/folder_stack.h"
#include "platform/posix/hard_links.h"
#include "platform/posix/moved_source.h"
#include "platform/posix/source_file.h"
#include "platform/posix/tree_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <string>
#include <utility>
#include <vector>

namespace platform::macos {

using posix::CopyRecord;
using posix::Descriptor;
using posix::Failure;
using posix::TreeEntry;

namespace {

class TreeCopy : public posix::TreeVisitor {
public:
    TreeCopy(const CopyOptions& options, int targetFolder, const std::string& targetName, CopyRecord& copied)
        : options_(options), targetName_(targetName), targets_(targetFolder), copied_(copied)
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
    Failure copyRegular(const TreeEntry& entry, struct stat& status);
    Failure copySpecial(const TreeEntry& entry, struct stat& status);
    Failure requireWhole(int source, const struct stat& status, int made) const;
    Failure requireRemovable(const TreeEntry& entry);
    bool link(const TreeEntry& entry, const struct stat& status)
    {
        return root_ && links_.link(status, root_.get(), targets_.folder(), entry.name);
    }
    void record(const TreeEntry& entry, const struct stat& status)
    {
        if (options_.needsRecord()) {
            copied_.add(entry.place(), status);
        }
    }

    const char* targetName(const TreeEntry& entry) const { return entry.isRoot() ? targetName_.c_str() : entry.name; }

    Failure unlessVanished(const TreeEntry& entry, Failure failure) const
    {
        const bool hasVanished = failure.error == ENOENT || failure.error == ESTALE; // as NFS says
        const bool isLeftOut = hasVanished && failure.side == Failure::Side::source && !entry.isRoot();
        return isLeftOut && !options_.isMove ? Failure{} : std::move(failure);
    }

    CopyOptions options_;
    const std::string& targetName_;
    posix::FolderStack targets_;
    Descriptor root_; // of the target, where it is a folder
    posix::HardLinks links_;
    CopyRecord& copied_;
    dev_t device_ = 0;                // of the source's root
    std::vector<struct stat> levels_; // of the source's folders, from before their entries were read
};

Failure TreeCopy::visit(const TreeEntry& entry)
{
    struct stat status {};
    Failure failure = requireRemovable(entry);
    if (!failure) {
        failure = entry.type == DT_REG ? copyRegular(entry, status) : copySpecial(entry, status);
    }
    if (failure) {
        return unlessVanished(entry, std::move(failure));
    }
    record(entry, status);
    return {};
}

// The copy itself is met where the source shows the target's folder by another way, as a network file system may.
Failure TreeCopy::choose(const TreeEntry& folder, Choice&)
{
    return !folder.isRoot() && targetName_ == folder.name ? Failure::because(intoItself)
                                                          : unlessVanished(folder, requireRemovable(folder));
}

Failure TreeCopy::enter(const TreeEntry& folder, int opened)
{
    struct stat status {};
    if (fstat(opened, &status) != 0) {
        return Failure::ofSource(errno);
    }
    if (Failure failure = options_.isMove ? posix::waitUntilTimestampSettles(opened, status) : Failure{}) {
        return failure;
    }
    const std::string name = targetName(folder);
    if (mkdirat(targets_.folder(), name.c_str(), S_IRWXU) != 0) {
        return Failure::ofTarget(errno);
    }
    if (const int error = targets_.enter(name)) {
        return Failure::ofTarget(error);
    }
    if (folder.isRoot()) {
        root_ = posix::openAt(targets_.folder(), ".", posix::asPlace);
    }
    levels_.push_back(status);
    record(folder, status);
    return {};
}

Failure TreeCopy::leave(const TreeEntry&, int left, Next&)
{
    int error = 0;
    const Descriptor made = targets_.leave(error);
    if (!made) {
        return Failure::ofTarget(error);
    }
    const struct stat status = levels_.back();
    levels_.pop_back();
    return copyFolderMetadata(left, status, made.get());
}

Failure TreeCopy::copyRegular(const TreeEntry& entry, struct stat& status)
{
    posix::OpenFile source;
    Failure failure = posix::openFile(entry.folder, entry.name, source);
    if (!failure) {
        failure = Failure::ofSource(materialize(source.descriptor.get(), source.status));
    }
    if (!failure && options_.isMove) {
        failure = posix::requireRest(source);
    }
    status = source.status;
    if (failure) {
        return failure;
    }
    if (link(entry, status)) {
        return {};
    }
    Descriptor made;
    const int file = source.descriptor.get();
    failure = copyFile(file, status, targets_.folder(), targetName(entry), made);
    if (!failure) {
        links_.remember(status, entry.path());
        failure = requireWhole(file, status, made.get());
    }
    return failure ? std::move(failure) : Failure::ofTarget(made.close());
}

// Fewer bytes than the source's size are a failure, unless in a copy it has become shorter by now.
Failure TreeCopy::requireWhole(int source, const struct stat& status, int made) const
{
    struct stat now {};
    struct stat copy {};
    if (fstat(source, &now) != 0) {
        return Failure::ofSource(errno);
    }
    if (fstat(made, &copy) != 0) {
        return Failure::ofTarget(errno);
    }
    const bool endsEarly = copy.st_size < status.st_size && (options_.isMove || copy.st_size < now.st_size);
    return Failure::ofSource(endsEarly ? EIO : 0);
}

Failure copyLink(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName)
{
    std::array<char, PATH_MAX> text{}; // with its zero
    const auto size = readlinkat(sourceFolder, sourceName, text.data(), text.size() - 1);
    if (size < 0) {
        return Failure::ofSource(errno);
    }
    return symlinkat(text.data(), targetFolder, targetName) == 0 ? Failure{} : Failure::ofTarget(errno);
}

// Reading a FIFO would wait for a writer, and a device has no end: both are made anew.
Failure TreeCopy::copySpecial(const TreeEntry& entry, struct stat& status)
{
    if (fstatat(entry.folder, entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return Failure::ofSource(errno);
    }
    if (link(entry, status)) {
        return {};
    }
    const int folder = targets_.folder();
    const char* name = targetName(entry);
    const mode_t type = status.st_mode & S_IFMT;
    Failure failure;
    switch (type) {
    case S_IFLNK:
        failure = copyLink(entry.folder, entry.name, folder, name);
        break;
    case S_IFIFO:
        failure = mkfifoat(folder, name, S_IRUSR | S_IWUSR) == 0 ? Failure{} : Failure::ofTarget(errno);
        break;
    case S_IFCHR:
    case S_IFBLK:
        failure =
            mknodat(folder, name, type | S_IRUSR | S_IWUSR, status.st_rdev) == 0 ? Failure{} : Failure::ofTarget(errno);
        break;
    default:
        failure = Failure::because(S_ISSOCK(status.st_mode) ? "a socket can't be copied" : posix::replacedMeanwhile);
    }
    if (!failure) {
        links_.remember(status, entry.path());
        failure = copySpecialMetadata(entry.folder, entry.name, folder, name, status);
    }
    return failure;
}

Failure TreeCopy::requireRemovable(const TreeEntry& entry)
{
    struct stat status {};
    if (!options_.isMove) {
        return {};
    }
    if (fstatat(entry.folder, entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return Failure::ofSource(errno);
    }
    if (entry.isRoot()) {
        device_ = status.st_dev;
    }
    return Failure::ofSource(status.st_dev != device_ ? EBUSY
                                                      : errorOfRemoving(entry.folder, entry.name, status.st_mode));
}

} // namespace

Failure copyTree(const CopyOptions& options, int sourceFolder, const char* sourceName, int targetFolder,
                 const std::string& targetName, CopyRecord& copied)
{
    TreeCopy copy(options, targetFolder, targetName, copied);
    Failure failure = posix::walkTree(sourceFolder, sourceName, copy, posix::Names::allFirst);
    copied.close();
    return failure;
}

int errorOfRemoving(int folder, const char* name, [[maybe_unused]] mode_t mode)
{
#ifdef __APPLE__
    // Asks for everything at once: locks, lists, the folder's permissions, sticky bit (access(2)). Of a link it would
    // ask what that leads to.
    if (S_ISLNK(mode)) {
        return 0;
    }
    return faccessat(folder, name, _DELETE_OK, AT_EACCESS) == 0 ? 0 : errno;
#else
    (void)name;
    return faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
#endif
}

} // namespace platform::macos
