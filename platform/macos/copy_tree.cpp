// One walk through the source, beside which the same folders are made and left in the target. A folder's metadata come
// when the walk leaves it: its times wouldn't stay, and a read-only folder couldn't be filled.

#include "platform/macos/copy_tree.h"

#include "platform/macos/system_copy.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/folder_stack.h"
#include "platform/posix/identity.h"
#include "platform/posix/moved_source.h"
#include "platform/posix/source_file.h"
#include "platform/posix/tree_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::macos {

using posix::CopyRecord;
using posix::Descriptor;
using posix::Failure;
using posix::Identity;
using posix::TreeEntry;

namespace {

class TreeCopy : public posix::TreeVisitor {
public:
    TreeCopy(const CopyOptions& options, int targetFolder, const std::string& targetName, CopyRecord& copied,
             CopyRecord& made)
        : options_(options), targetFolder_(targetFolder), targetName_(targetName), targets_(targetFolder),
          copied_(copied), made_(made)
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
    // The first of a file's names that were met.
    struct FirstName {
        std::string path; // of its copy, below the target's folder
        Identity copy;
    };

    Failure copyRegular(const TreeEntry& entry, struct stat& status);
    Failure copySpecial(const TreeEntry& entry, struct stat& status);
    Failure requireWhole(int source, const struct stat& status, int made) const;
    bool isLinkedToFirst(const TreeEntry& entry, const struct stat& status) const;
    void rememberFirst(const TreeEntry& entry, const struct stat& status, int made);
    Failure requireRemovable(const TreeEntry& entry);
    Failure record(const TreeEntry& entry, const struct stat& status);

    const char* targetName(const TreeEntry& entry) const { return entry.isRoot() ? targetName_.c_str() : entry.name; }

    Failure unlessVanished(const TreeEntry& entry, Failure failure) const
    {
        const bool hasVanished = failure.side == Failure::Side::source && failure.error == ENOENT && !entry.isRoot();
        return hasVanished && !options_.isMove ? Failure{} : std::move(failure);
    }

    CopyOptions options_;
    int targetFolder_;
    const std::string& targetName_;
    posix::FolderStack targets_;
    CopyRecord& copied_;
    CopyRecord& made_;
    dev_t device_ = 0;                // of the source's root
    std::vector<struct stat> levels_; // of the source's folders, from before their entries were read
    std::map<std::pair<dev_t, ino_t>, FirstName> firstNames_;
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
    return record(entry, status);
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
    Failure failure = record(folder, status);
    if (!failure) {
        failure = Failure::ofTarget(targets_.enter(name));
    }
    levels_.push_back(status);
    return failure;
}

// `status`: of the source, from before it was read.
Failure TreeCopy::record(const TreeEntry& entry, const struct stat& status)
{
    copied_.add(entry.place(), status);
    struct stat made {};
    if (!options_.isDurable) {
        return {};
    }
    if (fstatat(targets_.folder(), targetName(entry), &made, AT_SYMLINK_NOFOLLOW) != 0) {
        return Failure::ofTarget(errno);
    }
    made_.add(entry.place(), made);
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
    if (isLinkedToFirst(entry, status)) {
        return {};
    }
    Descriptor made;
    const int file = source.descriptor.get();
    failure = copyFile(file, status, targets_.folder(), targetName(entry), made);
    if (!failure) {
        rememberFirst(entry, status, made.get());
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

// The way to the first name leads through folders that may be others' by now: what was linked is compared.
bool TreeCopy::isLinkedToFirst(const TreeEntry& entry, const struct stat& status) const
{
    const auto first = firstNames_.find({status.st_dev, status.st_ino});
    if (status.st_nlink < 2 || first == firstNames_.end() ||
        linkat(targetFolder_, first->second.path.c_str(), targets_.folder(), targetName(entry), 0) != 0) {
        return false;
    }
    struct stat made {};
    if (fstatat(targets_.folder(), targetName(entry), &made, AT_SYMLINK_NOFOLLOW) == 0 &&
        Identity::of(made) == first->second.copy) {
        return true;
    }
    unlinkat(targets_.folder(), targetName(entry), 0);
    return false;
}

void TreeCopy::rememberFirst(const TreeEntry& entry, const struct stat& status, int made)
{
    struct stat copy {};
    if (status.st_nlink > 1 && !entry.isRoot() && fstat(made, &copy) == 0) {
        firstNames_.try_emplace({status.st_dev, status.st_ino},
                                FirstName{targetName_ + entry.path(), Identity::of(copy)});
    }
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
    return failure ? std::move(failure) : copySpecialMetadata(entry.folder, entry.name, folder, name, status);
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
                 const std::string& targetName, CopyRecord& copied, CopyRecord& made)
{
    TreeCopy copy(options, targetFolder, targetName, copied, made);
    Failure failure = posix::walkTree(sourceFolder, sourceName, copy, posix::Names::allFirst);
    copied.close();
    made.close();
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
