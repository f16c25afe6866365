#include "platform/posix/moved_source.h"

#include "platform/posix/remove_tree.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/names.h"
#include "platform/posix/read_lease.h"
#include "platform/posix/tree_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace platform::posix {

namespace {

constexpr int mostRests = 3;

Failure changed()
{
    return Failure::because("it was changed while it was being moved");
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

class Comparison : public TreeVisitor {
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
    Hiding hiding(entry.folder, entry.name, hiddenName_);
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
    return hasSameContent(now, before) && !(lease && lease->isRefused()) ? removeFile(entry, nameNow) : changed();
}

} // namespace

Failure waitUntilTimestampSettles(OpenFile& file)
{
    if (ReadLease(file.descriptor.get()).isRefused()) {
        return Failure::because("the file is open for writing");
    }
    for (int rests = 0; rests < mostRests; ++rests) {
        const std::int64_t left = timeUntilNextStamp(file.status);
        if (left == 0) {
            return {};
        }
        constexpr std::int64_t second = 1'000'000'000;
        const timespec rest{static_cast<time_t>(left / second), static_cast<long>(left % second)};
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
    CopiedRemoval removal(copied, renamingCopies(folder) ? std::string() : temporaryName());
    return walkTree(folder, name, removal, Names::allFirst).outcome("move", path);
}

} // namespace platform::posix
