// Depth first and without recursion: a folder's files go as they are read, its folders are emptied one after the other,
// and it goes itself when the walk comes back up. rmdir(2) is asked before a folder is entered, for it says of mounts
// that they are busy. Some file systems skip entries when others are removed between two reads of a folder, so one that
// isn't empty afterwards is read again.

#include "platform/linux/remove_tree.h"

#include "platform/linux/publish.h"
#include "platform/linux/source_file.h"
#include "platform/linux/system_error.h"
#include "platform/linux/tree_walk.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/magic.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace platform::linux_os {

namespace {

constexpr int mostPasses = 1000; // through one folder, against somebody who keeps filling it

struct Manner {
    bool opensLocks = false; // folders that their owner may not change are made changeable first
    bool looksOnly = false;
    const CopyRecord* copied = nullptr; // nothing else may go
};

bool isNotEmpty(int error)
{
    return error == ENOTEMPTY || error == EEXIST; // both are allowed (rmdir(2))
}

bool isOverlay(int folder)
{
    const Descriptor open(retried([&] { return openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    struct statfs status {};
    return open && fstatfs(open.get(), &status) == 0 && status.f_type == OVERLAYFS_SUPER_MAGIC;
}

class Removal {
public:
    Removal(const Manner& manner, std::string_view path) : manner_(manner), rootPath_(path) {}

    Outcome run(int folder, const char* name);

private:
    struct Pass {
        int number = 1;
        bool removedSomething = false;
    };

    Outcome runCopied(int folder, const char* name);
    Outcome removeRoot(int folder, const char* name);
    Outcome empty(Descriptor root);
    Outcome removeEntries();
    Outcome removeFolder(const std::string& name);
    Outcome enter(const std::string& name, int pass);
    Outcome leave();
    Outcome removeFile(const char* name);
    Outcome removeCopiedFile(int folder, const char* name, const std::string& path);
    Outcome removeUnlessChanged(int folder, const char* name, const struct stat& before, const std::string& path);
    bool isFolder(const DirectoryEntry& entry) const;
    void openLock(int folder, const char* name) const;

    // `path`: below the root.
    Outcome failed(std::string_view path, int error) const
    {
        return systemFailure(manner_.copied != nullptr ? "move" : "remove", rootPath_ + std::string(path), error);
    }
    Outcome changed(std::string_view path) const
    {
        return failure("move", rootPath_ + std::string(path), "it was changed while it was being moved");
    }

    Manner manner_;
    std::string rootPath_;
    std::string hiddenName_; // empty where files keep their names
    std::optional<TreeWalk> walk_;
    std::vector<Pass> passes_; // of every folder from the root to the innermost
    DirectoryReader reader_;
};

Outcome Removal::run(int folder, const char* name)
{
    if (manner_.copied != nullptr) {
        return runCopied(folder, name);
    }
    if (unlinkat(folder, name, 0) == 0) {
        return Outcome::success();
    }
    return errno == EISDIR ? removeRoot(folder, name) : failed("", errno);
}

Outcome Removal::runCopied(int folder, const char* name)
{
    if (!isOverlay(folder)) {
        hiddenName_ = temporaryName();
    }
    struct stat status {};
    if (fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return failed("", errno);
    }
    return S_ISDIR(status.st_mode) && manner_.copied->holds("", status) ? removeRoot(folder, name)
                                                                        : removeCopiedFile(folder, name, "");
}

Outcome Removal::removeRoot(int folder, const char* name)
{
    for (int pass = 0; manner_.looksOnly || unlinkat(folder, name, AT_REMOVEDIR) != 0; ++pass) {
        if (!manner_.looksOnly && (!isNotEmpty(errno) || pass == mostPasses)) {
            return failed("", errno);
        }
        openLock(folder, name);
        Descriptor root(retried([&] { return openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
        if (!root) {
            return failed("", errno);
        }
        if (Outcome outcome = empty(std::move(root)); !outcome.ok() || manner_.looksOnly) {
            return outcome;
        }
    }
    return Outcome::success();
}

Outcome Removal::empty(Descriptor root)
{
    walk_.emplace(std::move(root));
    passes_.assign(1, {});
    Outcome outcome = removeEntries();
    while (outcome.ok()) {
        if (const std::optional<std::string> name = walk_->takeKept()) {
            outcome = removeFolder(*name);
        } else if (walk_->isAtRoot()) {
            break;
        } else {
            outcome = leave();
        }
    }
    return outcome;
}

// Removes what isn't a folder from the innermost one and keeps the names of its folders.
Outcome Removal::removeEntries()
{
    reader_.start(walk_->folder());
    while (const DirectoryEntry* entry = reader_.next()) {
        if (isFolder(*entry)) {
            walk_->keep(entry->name);
            continue;
        }
        Outcome outcome = manner_.copied == nullptr
                              ? removeFile(entry->name)
                              : removeCopiedFile(walk_->folder(), entry->name, walk_->pathOf(entry->name));
        if (!outcome.ok()) {
            return outcome;
        }
        passes_.back().removedSomething = true;
    }
    return reader_.error() == 0 ? Outcome::success() : failed(walk_->path(), reader_.error());
}

bool Removal::isFolder(const DirectoryEntry& entry) const
{
    struct stat status {};
    return entry.type == DT_DIR ||
           (entry.type == DT_UNKNOWN && fstatat(walk_->folder(), entry.name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISDIR(status.st_mode));
}

Outcome Removal::removeFile(const char* name)
{
    if (unlinkat(walk_->folder(), name, 0) == 0 || errno == ENOENT) {
        return Outcome::success();
    }
    return failed(walk_->pathOf(name), errno);
}

Outcome Removal::removeCopiedFile(int folder, const char* name, const std::string& path)
{
    struct stat before {};
    if (fstatat(folder, name, &before, AT_SYMLINK_NOFOLLOW) != 0) {
        return failed(path, errno);
    }
    if (!manner_.copied->holds(path, before)) {
        return changed(path);
    }
    if (manner_.looksOnly) {
        return Outcome::success();
    }
    if (!S_ISREG(before.st_mode)) {
        return unlinkat(folder, name, 0) == 0 ? Outcome::success() : failed(path, errno);
    }
    Hiding hiding(folder, name, hiddenName_);
    Outcome outcome = removeUnlessChanged(folder, hiding.name(), before, path);
    if (outcome.ok()) {
        hiding.itemIsGone();
    }
    return outcome;
}

// Who had the file open already may still write to it.
Outcome Removal::removeUnlessChanged(int folder, const char* name, const struct stat& before, const std::string& path)
{
    OpenFile file;
    std::optional<ReadLease> lease;
    if (!openFile(folder, name, file)) {
        lease.emplace(file.descriptor.get());
    }
    struct stat now {};
    if (fstatat(folder, name, &now, AT_SYMLINK_NOFOLLOW) != 0) {
        return failed(path, errno);
    }
    const bool isSame = Identity::of(now) == Identity::of(before) && now.st_size == before.st_size &&
                        now.st_mtim.tv_sec == before.st_mtim.tv_sec && now.st_mtim.tv_nsec == before.st_mtim.tv_nsec;
    if (!isSame || (lease && lease->isRefused())) {
        return changed(path);
    }
    return unlinkat(folder, name, 0) == 0 ? Outcome::success() : failed(path, errno);
}

Outcome Removal::removeFolder(const std::string& name)
{
    struct stat folder {};
    folder.st_mode = S_IFDIR;
    if (manner_.copied != nullptr && !manner_.copied->holds(walk_->pathOf(name), folder)) {
        return changed(walk_->pathOf(name));
    }
    if (manner_.looksOnly) {
        return enter(name, 1);
    }
    if (unlinkat(walk_->folder(), name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) {
        passes_.back().removedSomething = true;
        return Outcome::success();
    }
    return isNotEmpty(errno) ? enter(name, 1) : failed(walk_->pathOf(name), errno);
}

Outcome Removal::enter(const std::string& name, int pass)
{
    openLock(walk_->folder(), name.c_str());
    if (const int error = walk_->enter(name)) {
        return failed(walk_->pathOf(name), error);
    }
    passes_.push_back({pass});
    return removeEntries();
}

Outcome Removal::leave()
{
    int error = 0;
    if (!walk_->leave(error)) {
        return failed(walk_->path(), error);
    }
    const Pass pass = passes_.back();
    passes_.pop_back();
    const std::string name = walk_->leftName();
    if (manner_.looksOnly) {
        return Outcome::success();
    }
    if (unlinkat(walk_->folder(), name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) {
        passes_.back().removedSomething = true;
        return Outcome::success();
    }
    if (isNotEmpty(errno) && pass.removedSomething && pass.number < mostPasses) {
        return enter(name, pass.number + 1);
    }
    return failed(walk_->pathOf(name), errno);
}

void Removal::openLock(int folder, const char* name) const
{
    if (manner_.opensLocks) {
        // Without success the removal says what is wrong.
        [[maybe_unused]] const int result = fchmodat(folder, name, S_IRWXU, AT_SYMLINK_NOFOLLOW);
    }
}

constexpr std::uint64_t keptByAttribute = STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND;

bool mayRemoveOthersEntries()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    if (syscall(SYS_capget, &header, sets.data()) != 0) {
        return true;
    }
    return (sets[CAP_TO_INDEX(CAP_FOWNER)].effective & CAP_TO_MASK(CAP_FOWNER)) != 0;
}

} // namespace

Outcome removeEntry(int folder, const char* name, std::string_view path)
{
    return Removal({}, path).run(folder, name);
}

Outcome removeCopied(int folder, const char* name, std::string_view path, const CopyRecord& copied)
{
    return Removal({.copied = &copied}, path).run(folder, name);
}

Outcome requireUnchanged(int folder, const char* name, std::string_view path, const CopyRecord& copied)
{
    return Removal({.looksOnly = true, .copied = &copied}, path).run(folder, name);
}

void discardEntry(int folder, const char* name) noexcept
{
    const int saved = errno;
    bool isGone = false;
    // Again for what passes, such as a moment without memory. After that it stays behind under its temporary name.
    for (int attempt = 0; attempt < 2 && !isGone; ++attempt) {
        try {
            isGone = Removal({.opensLocks = true}, name).run(folder, name).ok();
        } catch (const std::bad_alloc&) {
            continue;
        }
    }
    errno = saved;
}

int errorOfRemovingFrom(int folder)
{
    if (faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) != 0) {
        return errno;
    }
    struct statx status {};
    if (statx(folder, "", AT_EMPTY_PATH, STATX_TYPE, &status) != 0) {
        return errno;
    }
    return (status.stx_attributes & keptByAttribute) != 0 ? EPERM : 0;
}

int errorOfRemovingEntry(int folder, const struct stat& folderStatus, const char* name)
{
    struct statx status {};
    if (statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_UID, &status) != 0) {
        return errno;
    }
    if ((status.stx_attributes & keptByAttribute) != 0) {
        return EPERM;
    }
    if ((status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
        return EBUSY;
    }
    const uid_t self = geteuid();
    const bool sticky = (folderStatus.st_mode & S_ISVTX) != 0;
    const bool own = folderStatus.st_uid == self || status.stx_uid == self;
    return sticky && !own && !mayRemoveOthersEntries() ? EPERM : 0;
}

} // namespace platform::linux_os
