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
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace platform::linux_os {

using posix::CopyRecord;
using posix::Failure;
using posix::Identity;
using posix::Names;
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
    const posix::Descriptor open = posix::openAt(folder, ".", posix::folderItself);
    struct statfs status {};
    return open && fstatfs(open.get(), &status) == 0 && status.f_type == OVERLAYFS_SUPER_MAGIC;
}

// The comparison with the record; `status` becomes the entry's.
Failure compare(const TreeEntry& entry, const CopyRecord& copied, struct stat& status)
{
    if (entry.type == DT_DIR) {
        status.st_mode = S_IFDIR;
    } else if (fstatat(entry.folder, entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return Failure::ofSource(errno);
    }
    return copied.holds(entry.place(), status) ? Failure{} : changed();
}

class Comparison : public posix::TreeVisitor {
public:
    explicit Comparison(const CopyRecord& copied) : copied_(copied) {}

    Failure visit(const TreeEntry& entry) override
    {
        struct stat status {};
        return compare(entry, copied_, status);
    }
    Failure choose(const TreeEntry& folder, Choice&) override { return visit(folder); }

private:
    const CopyRecord& copied_;
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
    Failure removeUnlessChanged(const TreeEntry& entry, const char* nameNow, const struct stat& before);

    const CopyRecord& copied_;
    std::string hiddenName_;
};

Failure CopiedRemoval::visit(const TreeEntry& entry)
{
    struct stat before {};
    if (Failure failure = compare(entry, copied_, before)) {
        return failure;
    }
    if (!S_ISREG(before.st_mode)) {
        return removeFile(entry, entry.name);
    }
    posix::Hiding hiding(entry.folder, entry.name, hiddenName_);
    Failure failure = removeUnlessChanged(entry, hiding.name(), before);
    if (!failure) {
        hiding.itemIsGone();
    }
    return failure;
}

Failure CopiedRemoval::choose(const TreeEntry& folder, Choice& choice)
{
    struct stat status {};
    Failure failure = compare(folder, copied_, status);
    return failure ? failure : TreeRemoval::choose(folder, choice);
}

// Who had the file open already may still write to it.
Failure CopiedRemoval::removeUnlessChanged(const TreeEntry& entry, const char* nameNow, const struct stat& before)
{
    OpenFile file;
    std::optional<ReadLease> lease;
    if (!openFile(entry.folder, nameNow, file)) {
        lease.emplace(file.descriptor.get());
    }
    struct stat now {};
    if (fstatat(entry.folder, nameNow, &now, AT_SYMLINK_NOFOLLOW) != 0) {
        return Failure::ofSource(errno);
    }
    const bool isSame = Identity::of(now) == Identity::of(before) && now.st_size == before.st_size &&
                        now.st_mtim.tv_sec == before.st_mtim.tv_sec && now.st_mtim.tv_nsec == before.st_mtim.tv_nsec;
    return isSame && !(lease && lease->isRefused()) ? removeFile(entry, nameNow) : changed();
}

} // namespace

Failure waitUntilTimestampSettles(OpenFile& file)
{
    if (ReadLease(file.descriptor.get()).isRefused()) {
        return Failure::because("the file is open for writing");
    }
    for (int rests = 0; rests < mostRests; ++rests) {
        const std::int64_t left = posix::timeUntilNextStamp(file.status);
        if (left == 0) {
            return {};
        }
        constexpr std::int64_t second = 1'000'000'000;
        const timespec rest{left / second, left % second};
        nanosleep(&rest, nullptr);
        if (fstat(file.descriptor.get(), &file.status) != 0) {
            return Failure::ofSource(errno);
        }
    }
    return Failure::because("the file is being written to");
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

} // namespace platform::linux_os
