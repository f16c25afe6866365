#include "platform/posix/moved_source.h"

#include "platform/posix/descriptor.h"
#include "platform/posix/file_times.h"
#include "platform/posix/identity.h"
#include "platform/posix/names.h"
#include "platform/posix/read_lease.h"
#include "platform/posix/remove_tree.h"
#include "platform/posix/restrictions.h"
#include "platform/posix/tree_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#ifdef __linux__
#include <sys/vfs.h>
#endif
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

namespace platform::posix {

namespace {

constexpr int mostRests = 3;

Failure changed()
{
    return Failure::because("it was changed while it was being moved");
}

// There what has lost the name that it was opened by can't be examined any more, or has a time of last change of the
// kernel's own making, or keeps a hidden name until it is closed.
bool isInUserSpace([[maybe_unused]] int item)
{
#ifdef __linux__
    constexpr auto fuse = 0x65735546; // statfs(2)
    struct statfs system {};
    return fstatfs(item, &system) == 0 && system.f_type == fuse;
#else
    return false;
#endif
}

// Everything is as it was copied.
class Comparison : public TreeVisitor {
public:
    explicit Comparison(const CopyRecord& copied) : copied_(copied) {}

    Failure visit(const TreeEntry& entry) override
    {
        struct stat status {};
        if (Failure unknown = entry.examine(status)) {
            return unknown;
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
    // `item`: open, and has just lost one of the names that it had `before`.
    void add(const struct stat& before, int item)
    {
        struct stat now {};
        const bool isTold = !isInUserSpace(item) && fstat(item, &now) == 0;
        changes_[Identity::of(before)] = isTold ? std::optional(changeTime(now)) : std::nullopt;
    }

    bool contain(const struct stat& status) const
    {
        const auto found = changes_.find(Identity::of(status));
        return found != changes_.end() && (!found->second || areEqual(*found->second, changeTime(status)));
    }

private:
    std::unordered_map<Identity, std::optional<timespec>, Identity::Hash> changes_; // empty: to any time
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
    if (Failure unknown = entry.examine(before)) {
        return unknown;
    }
    const Place place = entry.place();
    if (!copied_.holds(place, before) && !(touched_.contain(before) && copied_.holdsContent(place, before))) {
        return changed();
    }
    if (S_ISREG(before.st_mode)) {
        return removeFileUnlessChanged(entry, before);
    }
    const Descriptor item = before.st_nlink > 1 ? openAt(entry.folder, entry.name, itself) : Descriptor();
    Failure failure = removeFile(entry, entry.name);
    if (!failure && item) {
        touched_.add(before, item.get());
    }
    return failure;
}

// Until something in it is removed a folder has the times that it had.
Failure CopiedRemoval::choose(const TreeEntry& folder, Choice& choice)
{
    struct stat status {};
    if (Failure unknown = folder.examine(status)) {
        return unknown;
    }
    return isRepeated() || copied_.holds(folder.place(), status) ? TreeRemoval::choose(folder, choice) : changed();
}

Failure CopiedRemoval::removeFileUnlessChanged(const TreeEntry& entry, const struct stat& before)
{
    OpenFile file;
    const bool isOpen = !openFile(entry.folder, entry.name, file);
    Hiding hiding(entry.folder, entry.name, hiddenName_);
    Failure failure = removeUnlessChanged(entry, hiding.name(), before, isOpen ? file.descriptor.get() : -1);
    if (!failure) {
        hiding.itemIsGone();
        if (isOpen && before.st_nlink > 1) {
            touched_.add(before, file.descriptor.get());
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
    const bool isUnchanged =
        S_ISREG(now.st_mode) && (hasNewNumber || now.st_ino == before.st_ino) && hasSameContent(now, before);
    return isUnchanged && !(lease && lease->isRefused()) ? removeFile(entry, nameNow) : changed();
}

// A copy carries its source's times, but has a time of last change of its own.
class CopyWithdrawal : public TreeRemoval {
public:
    explicit CopyWithdrawal(const CopyRecord& copied) : copied_(copied) {}

    Failure visit(const TreeEntry& entry) override
    {
        struct stat status {};
        if (Failure unknown = entry.examine(status)) {
            return unknown;
        }
        if (!copied_.holdsContent(entry.place(), status)) {
            return changed();
        }
        unlock(entry.folder, entry.name, entry.type);
        return TreeRemoval::visit(entry);
    }

    Failure choose(const TreeEntry& folder, Choice& choice) override
    {
        struct stat status {};
        status.st_mode = S_IFDIR;
        if (!copied_.holdsContent(folder.place(), status)) {
            return changed();
        }
        unlock(folder.folder, folder.name, folder.type);
        return TreeRemoval::choose(folder, choice);
    }

private:
    const CopyRecord& copied_;
};

} // namespace

Failure waitUntilTimestampSettles(int item, struct stat& status)
{
    for (int rests = 0; rests < mostRests; ++rests) {
        const std::int64_t left = timeUntilNextStamp(status);
        if (left == 0) {
            return {};
        }
        constexpr std::int64_t second = 1'000'000'000;
        timespec rest{static_cast<time_t>(left / second), static_cast<long>(left % second)};
        retried([&] { return nanosleep(&rest, &rest); });
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
    CopiedRemoval removal(copied, renamingCopies(folder) ? std::string() : temporaryName());
    return walkTree(folder, name, removal, Names::allFirst).outcome("move", path);
}

void withdrawCopy(int folder, const char* name, const CopyRecord& copied) noexcept
{
    attemptTwice([&] {
        CopyWithdrawal withdrawal(copied);
        return !walkTree(folder, name, withdrawal, Names::allFirst);
    });
}

} // namespace platform::posix
