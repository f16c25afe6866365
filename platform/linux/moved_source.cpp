#include "platform/linux/moved_source.h"

#include "platform/linux/remove_tree.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/identity.h"
#include "platform/posix/names.h"
#include "platform/posix/tree_walk.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

namespace platform::linux_os {

using posix::CopyRecord;
using posix::Descriptor;
using posix::Failure;
using posix::Identity;
using posix::Names;
using posix::openAt;
using posix::Place;
using posix::TreeEntry;

namespace {

constexpr int mostRests = 3;

// A lease on an open file (fcntl(2), F_SETLEASE): while it lasts nobody has the file open for writing, and who wants to
// waits. Only the file's owner and privileged processes get one, and only on some file systems. For moments only, with
// SIGIO kept from the thread: that is how the kernel asks to have it back.
class ReadLease {
public:
    explicit ReadLease(int file);
    ~ReadLease();
    ReadLease(const ReadLease&) = delete;
    ReadLease& operator=(const ReadLease&) = delete;

    // Somebody has the file open for writing. False also where there are no leases.
    bool isRefused() const { return isRefused_; }

private:
    int file_;
    bool isTaken_ = false;
    bool isRefused_ = false;
};

ReadLease::ReadLease(int file) : file_(file)
{
    // The request to have it back must reach this thread, which keeps it out, and no other.
    const f_owner_ex owner{F_OWNER_TID, gettid()};
    if (fcntl(file, F_SETOWN_EX, &owner) == 0) {
        isTaken_ = fcntl(file, F_SETLEASE, F_RDLCK) == 0;
        isRefused_ = !isTaken_ && errno == EAGAIN;
    }
}

ReadLease::~ReadLease()
{
    if (isTaken_) {
        const int saved = errno;
        fcntl(file_, F_SETLEASE, F_UNLCK);
        errno = saved;
    }
}

Failure changed()
{
    return Failure::because("it was changed while it was being moved");
}

bool isOverlay(int folder)
{
    const Descriptor open = openAt(folder, ".", posix::folderItself);
    struct statfs status {};
    return open && fstatfs(open.get(), &status) == 0 && status.f_type == OVERLAYFS_SUPER_MAGIC;
}

bool isSame(const timespec& one, const timespec& other)
{
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

// Everything is as it was copied.
class Comparison : public posix::TreeVisitor {
public:
    explicit Comparison(const CopyRecord& copied) : copied_(copied) {}

    Failure visit(const TreeEntry& entry) override
    {
        struct stat status {};
        if (fstatat(entry.folder, entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return Failure::ofSource(errno);
        }
        return copied_.holds(entry.place(), status) ? Failure{} : changed();
    }

    // After what is in it, for that has names that say more.
    Failure leave(const TreeEntry& folder, int left, Next&) override
    {
        struct stat status {};
        if (fstat(left, &status) != 0) {
            return Failure::ofSource(errno);
        }
        return copied_.holds(folder.place(), status) ? Failure{} : changed();
    }

private:
    const CopyRecord& copied_;
};

// Items that lose one of several names get a new time of last change by that, which tells from then on whether somebody
// else has changed them.
class TouchedItems {
public:
    // `item`: open, and has just lost a name.
    void add(int item)
    {
        struct stat status {};
        if (fstat(item, &status) == 0 && status.st_nlink > 0) {
            changes_.insert_or_assign(Identity::of(status), status.st_ctim);
        } else {
            changes_.erase(Identity::of(status));
        }
    }

    bool contain(const struct stat& status) const
    {
        const auto found = changes_.find(Identity::of(status));
        return found != changes_.end() && isSame(found->second, status.st_ctim);
    }

private:
    struct Hash {
        std::size_t operator()(const Identity& identity) const { return identity.inode; }
    };

    std::unordered_map<Identity, timespec, Hash> changes_;
};

class CopiedRemoval : public TreeRemoval {
public:
    // `hiddenName`: empty where files keep their names.
    CopiedRemoval(const CopyRecord& copied, std::string hiddenName)
        : copied_(copied), hiddenName_(std::move(hiddenName))
    {
    }

    Failure visit(const TreeEntry& entry) override;
    Failure choose(const TreeEntry& folder, Choice& choice) override;

private:
    Failure removeFileUnlessChanged(const TreeEntry& entry, const struct stat& before);
    Failure removeUnlessChanged(const TreeEntry& entry, const char* nameNow, const struct stat& before, int held);

    const CopyRecord& copied_;
    std::string hiddenName_;
    TouchedItems touched_;
};

Failure CopiedRemoval::visit(const TreeEntry& entry)
{
    struct stat before {};
    if (fstatat(entry.folder, entry.name, &before, AT_SYMLINK_NOFOLLOW) != 0) {
        return Failure::ofSource(errno);
    }
    const Place place = entry.place();
    if (!copied_.holds(place, before) && !(touched_.contain(before) && copied_.holdsContent(place, before))) {
        return changed();
    }
    if (S_ISREG(before.st_mode)) {
        return removeFileUnlessChanged(entry, before);
    }
    const Descriptor item = before.st_nlink > 1 ? openAt(entry.folder, entry.name, O_PATH | O_NOFOLLOW) : Descriptor();
    Failure failure = removeFile(entry, entry.name);
    if (!failure && item) {
        touched_.add(item.get());
    }
    return failure;
}

// Until something in it is removed a folder has the times that it had.
Failure CopiedRemoval::choose(const TreeEntry& folder, Choice& choice)
{
    struct stat status {};
    if (fstatat(folder.folder, folder.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return Failure::ofSource(errno);
    }
    return isRepeated() || copied_.holds(folder.place(), status) ? TreeRemoval::choose(folder, choice) : changed();
}

Failure CopiedRemoval::removeFileUnlessChanged(const TreeEntry& entry, const struct stat& before)
{
    OpenFile file;
    const bool isOpen = !openFile(entry.folder, entry.name, file);
    posix::Hiding hiding(entry.folder, entry.name, hiddenName_);
    Failure failure = removeUnlessChanged(entry, hiding.name(), before, isOpen ? file.descriptor.get() : -1);
    if (!failure) {
        hiding.itemIsGone();
        if (isOpen && before.st_nlink > 1) {
            touched_.add(file.descriptor.get());
        }
    }
    return failure;
}

// Who had the file open already may still write to it. `held`: the file, open since before it lost its name; -1 where
// it can't be opened.
Failure CopiedRemoval::removeUnlessChanged(const TreeEntry& entry, const char* nameNow, const struct stat& before,
                                           int held)
{
    std::optional<ReadLease> lease;
    if (held >= 0) {
        lease.emplace(held);
    }
    struct stat now {};
    if (fstatat(entry.folder, nameNow, &now, AT_SYMLINK_NOFOLLOW) != 0) {
        return Failure::ofSource(errno);
    }
    // Some file systems give an item another number with each name.
    struct stat heldNow {};
    const bool hasNewNumber = held >= 0 && fstat(held, &heldNow) == 0 && heldNow.st_ino != before.st_ino;
    const bool isUnchanged = now.st_dev == before.st_dev && (hasNewNumber || now.st_ino == before.st_ino) &&
                             S_ISREG(now.st_mode) && now.st_size == before.st_size &&
                             isSame(now.st_mtim, before.st_mtim);
    return isUnchanged && !(lease && lease->isRefused()) ? removeFile(entry, nameNow) : changed();
}

// A copy carries its source's times, but has a time of last change of its own.
class CopyWithdrawal : public TreeRemoval {
public:
    explicit CopyWithdrawal(const CopyRecord& copied) : copied_(copied) {}

    Failure visit(const TreeEntry& entry) override
    {
        struct stat status {};
        if (fstatat(entry.folder, entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return Failure::ofSource(errno);
        }
        return copied_.holdsContent(entry.place(), status) ? TreeRemoval::visit(entry) : changed();
    }

    Failure choose(const TreeEntry& folder, Choice& choice) override
    {
        struct stat status {};
        status.st_mode = S_IFDIR;
        Failure failure =
            copied_.holdsContent(folder.place(), status) ? TreeRemoval::choose(folder, choice) : changed();
        return failure || choice == Choice::skip ? std::move(failure) : unlockFolder(folder);
    }

private:
    const CopyRecord& copied_;
};

} // namespace

Failure waitUntilTimestampSettles(int item, struct stat& status)
{
    for (int rests = 0; rests < mostRests; ++rests) {
        const std::int64_t left = posix::timeUntilNextStamp(status);
        if (left == 0) {
            return {};
        }
        constexpr std::int64_t second = 1'000'000'000;
        const timespec rest{left / second, left % second};
        nanosleep(&rest, nullptr);
        if (fstat(item, &status) != 0) {
            return Failure::ofSource(errno);
        }
    }
    return Failure::because("it is being changed");
}

Failure requireRest(OpenFile& file)
{
    return ReadLease(file.descriptor.get()).isRefused() ? Failure::because("the file is open for writing")
                                                        : waitUntilTimestampSettles(file.descriptor.get(), file.status);
}

Outcome requireUnchanged(int folder, const char* name, std::string_view path, const CopyRecord& copied)
{
    Comparison comparison(copied);
    return walkTree(folder, name, comparison).outcome("move", path);
}

Outcome removeCopied(int folder, const char* name, std::string_view path, const CopyRecord& copied)
{
    CopiedRemoval removal(copied, isOverlay(folder) ? std::string() : posix::temporaryName());
    return walkTree(folder, name, removal, Names::allFirst).outcome("move", path);
}

void withdrawCopy(int folder, const char* name, const CopyRecord& copied)
{
    CopyWithdrawal withdrawal(copied);
    [[maybe_unused]] const Failure failure = walkTree(folder, name, withdrawal, Names::allFirst);
}

} // namespace platform::linux_os
