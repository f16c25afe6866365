// A folder's files go as they are read, its folders are emptied one after the other, and it goes itself when the walk
// leaves it. rmdir(2) is asked before a folder is entered, for it says of mounts that they are busy. Some file systems
// skip entries when others are removed between two reads of a folder, so one that isn't empty afterwards is walked
// again, for as long as that removes something.

#include "platform/posix/remove_tree.h"

#include "platform/posix/restrictions.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform::posix {

namespace {

constexpr int mostPasses = 1000; // through one folder, against somebody who keeps filling it

bool isNotEmpty(int error)
{
    return error == ENOTEMPTY || error == EEXIST; // both are allowed (rmdir(2))
}

// What its owner may not change is made changeable first. Without success the removal says what is wrong.
class UnlockingRemoval : public TreeRemoval {
public:
    Failure visit(const TreeEntry& entry) override
    {
        unlock(entry.folder, entry.name, entry.type);
        return TreeRemoval::visit(entry);
    }
    Failure choose(const TreeEntry& folder, Choice& choice) override
    {
        unlock(folder.folder, folder.name, folder.type);
        return TreeRemoval::choose(folder, choice);
    }
};

} // namespace

Failure TreeRemoval::removed(const TreeEntry& entry, int result, int error)
{
    if (result == 0 || (error == ENOENT && !entry.isRoot())) {
        passes_.back().removedSomething = true;
        return {};
    }
    return Failure::ofSource(error);
}

Failure TreeRemoval::removeFile(const TreeEntry& entry, const char* nameNow)
{
    const int result = unlinkat(entry.folder, nameNow, 0);
    return removed(entry, result, errno);
}

Failure TreeRemoval::visit(const TreeEntry& entry)
{
    return removeFile(entry, entry.name);
}

Failure TreeRemoval::choose(const TreeEntry& folder, Choice& choice)
{
    const int result = unlinkat(folder.folder, folder.name, AT_REMOVEDIR);
    const int error = errno;
    if (result != 0 && isNotEmpty(error)) {
        return {};
    }
    choice = Choice::skip;
    nextPass_ = 1;
    return removed(folder, result, error);
}

Failure TreeRemoval::enter(const TreeEntry&, int)
{
    passes_.push_back({.number = std::exchange(nextPass_, 1)});
    return {};
}

Failure TreeRemoval::leave(const TreeEntry& folder, int, Next& next)
{
    const Pass pass = passes_.back();
    passes_.pop_back();
    const int result = unlinkat(folder.folder, folder.name, AT_REMOVEDIR);
    if (result != 0 && isNotEmpty(errno) && pass.removedSomething && pass.number < mostPasses) {
        nextPass_ = pass.number + 1;
        next = Next::repeat;
        return {};
    }
    return removed(folder, result, errno);
}

// What has gone by itself is as good as removed.
Failure TreeRemoval::failed(const TreeEntry& entry, int error)
{
    return error == ENOENT && !entry.isRoot() ? Failure{} : Failure::ofSource(error);
}

Outcome removeEntry(int folder, const char* name, std::string_view path)
{
    constexpr const char* action = "remove";
    if (unlinkat(folder, name, 0) == 0) {
        return Outcome::success();
    }
    if (errno != EISDIR && errno != EPERM) { // of a folder Linux says the one, POSIX the other
        return systemFailure(action, path, errno);
    }
    TreeRemoval removal;
    return walkTree(folder, name, removal).outcome(action, path);
}

void discardEntry(int folder, const char* name) noexcept
{
    // What is left after that stays behind under its temporary name.
    attemptTwice([=] {
        UnlockingRemoval removal;
        return !walkTree(folder, name, removal);
    });
}

} // namespace platform::posix
