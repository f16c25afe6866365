#include "platform/file_manager.h"

#include "platform/linux/folder_identity.h"
#include "platform/linux/publish.h"
#include "platform/linux/remove_tree.h"
#include "platform/linux/staged_copy.h"
#include "platform/linux/system_error.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <string>

namespace platform {

using linux_os::Identity;
using linux_os::Location;
using linux_os::StagedCopy;

namespace {

constexpr const char* action = "move";

Outcome failed(const Location& item, int error)
{
    return linux_os::systemFailure(action, item.path.text, error);
}

bool isSameContent(const struct stat& copied, const struct stat& now)
{
    if (Identity::of(copied) != Identity::of(now)) {
        return false;
    }
    return !S_ISREG(copied.st_mode) || (copied.st_size == now.st_size && copied.st_mtim.tv_sec == now.st_mtim.tv_sec &&
                                        copied.st_mtim.tv_nsec == now.st_mtim.tv_nsec);
}

// Takes the source's name away in one step before anything in it is touched, so that what can refuse refuses while the
// source is whole.
Outcome removeFolder(const Location& source, const StagedCopy& copy)
{
    const int folder = source.folder.get();
    const char* name = source.path.name.c_str();
    const std::string hidden = linux_os::temporaryName();
    if (const int error = linux_os::renameWithoutReplacing(folder, name, folder, hidden.c_str())) {
        copy.withdraw();
        return failed(source, error);
    }
    // The copy is complete; what is left of the source shows itself again beside the failure that names it.
    const auto showAgain = [&] { linux_os::renameWithoutReplacing(folder, hidden.c_str(), folder, name); };
    try {
        Outcome outcome = linux_os::removeEntry(folder, hidden.c_str(), source.path.text);
        if (!outcome.ok()) {
            showAgain();
        }
        return outcome;
    } catch (const std::bad_alloc&) {
        showAgain();
        throw;
    }
}

Outcome removeSource(const Location& source, const StagedCopy& copy)
{
    const int folder = source.folder.get();
    const char* name = source.path.name.c_str();
    struct stat now {};
    if (fstatat(folder, name, &now, AT_SYMLINK_NOFOLLOW) != 0 || !isSameContent(copy.sourceStatus(), now)) {
        copy.withdraw();
        return linux_os::failure(action, source.path.text, "the item was changed while it was being moved");
    }
    if (S_ISDIR(now.st_mode)) {
        return removeFolder(source, copy);
    }
    if (unlinkat(folder, name, 0) != 0) {
        const int error = errno;
        copy.withdraw();
        return failed(source, error);
    }
    return Outcome::success();
}

Outcome moveAcrossFileSystems(const Location& source, const Location& target)
{
    StagedCopy copy(source, target, linux_os::CopyPurpose::move);
    if (Outcome outcome = copy.build(); !outcome.ok()) {
        return outcome;
    }
    if (Outcome outcome = copy.flush(); !outcome.ok()) {
        return outcome;
    }
    if (Outcome outcome = copy.publish(); !outcome.ok()) {
        return outcome;
    }
    if (Outcome outcome = copy.flushName(); !outcome.ok()) {
        copy.withdraw();
        return outcome;
    }
    return removeSource(source, copy);
}

// What rename(2) answers with EINVAL or, from another mount of the same file system, with EXDEV.
bool isFolderIntoItself(const Location& target, const struct stat& source)
{
    return S_ISDIR(source.st_mode) && linux_os::isInside(target.folder.get(), Identity::of(source)).value_or(false);
}

Outcome moveLocated(const Location& source, const Location& target)
{
    struct stat status {};
    if (fstatat(source.folder.get(), source.path.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return failed(source, errno);
    }
    if (source.path.namesItself() || isFolderIntoItself(target, status)) {
        const bool itself = !source.path.namesItself();
        return itself ? linux_os::failure(action, source.path.text, "a folder can't be put into itself")
                      : failed(source, EBUSY);
    }
    if ((source.path.endsInSlash && !S_ISDIR(status.st_mode) && !S_ISLNK(status.st_mode)) ||
        (target.path.endsInSlash && !S_ISDIR(status.st_mode))) {
        return failed(source, ENOTDIR);
    }
    const int error = linux_os::renameWithoutReplacing(source.folder.get(), source.path.name.c_str(),
                                                       target.folder.get(), target.path.name.c_str());
    if (error == EXDEV) {
        return moveAcrossFileSystems(source, target);
    }
    if (error == EEXIST) {
        return failed(target, error);
    }
    return error == 0 ? Outcome::success() : failed(source, error);
}

} // namespace

Outcome moveItem(PathView source, PathView target)
{
    Location from;
    Location to;
    if (Outcome outcome = linux_os::locate(action, source, from); !outcome.ok()) {
        return outcome;
    }
    if (Outcome outcome = linux_os::locate(action, target, to); !outcome.ok()) {
        return outcome;
    }
    return moveLocated(from, to);
}

} // namespace platform
