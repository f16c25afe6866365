// The changing half of platform/file_manager.h: what is refused, and the order in which things happen.

#include "platform/file_manager.h"

#include "platform/linux/moved_source.h"
#include "platform/linux/remove_tree.h"
#include "platform/linux/staged_copy.h"
#include "platform/posix/failure.h"
#include "platform/posix/flush.h"
#include "platform/posix/identity.h"
#include "platform/posix/item_path.h"
#include "platform/posix/names.h"
#include "platform/signal_block.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace platform {

using linux_os::intoItself;
using linux_os::StagedCopy;
using posix::Descriptor;
using posix::failureBecause;
using posix::Identity;
using posix::Location;
using posix::systemFailure;

namespace {

// A transfer's two places, and the signals that its own system calls may raise.
struct Transfer {
    const char* action;
    const char* actionOnTarget;
    PathView sourcePath;
    Location source{};
    Location target{};
    SignalBlock noFileSizeSignal{SIGXFSZ};
    SignalBlock noLeaseSignal{SIGIO};

    Outcome locate(PathView targetPath)
    {
        Outcome outcome = posix::locate(action, sourcePath, source);
        return outcome.ok() ? posix::locate(actionOnTarget, targetPath, target) : outcome;
    }
};

Outcome failed(const char* action, const Location& item, int error)
{
    return systemFailure(action, item.path.text, error);
}

// Removes what is at the target. It loses its name before it goes for good: only then can be seen that the source isn't
// the same item by a name that this file system takes for another spelling.
Outcome removeExisting(const Transfer& transfer)
{
    const Location& target = transfer.target;
    const int folder = target.folder.get();
    const char* name = target.path.name.c_str();
    constexpr const char* action = "remove";
    if (target.path.namesItself()) {
        return failed(action, target, EBUSY);
    }
    const std::string hidden = posix::temporaryName();
    posix::Hiding hiding(folder, name, hidden);
    if (const int error = hiding.error()) {
        // ENOENT: it is gone already. EXDEV: a folder of an overlay's lower layer.
        return error == ENOENT  ? Outcome::success()
               : error == EXDEV ? linux_os::removeEntry(folder, name, target.path.text)
                                : failed(action, target, error);
    }
    if (!existence(transfer.sourcePath).exists) {
        return failureBecause(action, target.path.text, "the source would go with it");
    }
    Outcome outcome = linux_os::removeEntry(folder, hiding.name(), target.path.text);
    if (outcome.ok()) {
        hiding.itemIsGone();
    }
    return outcome;
}

// The copy is whole and on the disk before the source goes.
Outcome moveByCopying(const Location& source, const Location& target)
{
    const int folder = source.folder.get();
    const char* name = source.path.name.c_str();
    StagedCopy copy(source, target, {.isMove = true, .isDurable = true});
    Outcome outcome = copy.build();
    if (outcome.ok()) {
        outcome = linux_os::requireUnchanged(folder, name, source.path.text, copy.copied());
    }
    if (outcome.ok()) {
        outcome = copy.publish();
    }
    if (!outcome.ok()) {
        return outcome;
    }
    if (copy.isFolder()) {
        copy.keep(); // should the removal end half-way, the copy alone is whole
    }
    outcome = linux_os::removeCopied(folder, name, source.path.text, copy.copied());
    if (outcome.ok()) {
        copy.keep();
    }
    return outcome;
}

// Empty where the item may not be read.
Descriptor openToFlush(const Location& item)
{
    return posix::openAt(item.folder.get(), item.path.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
}

// Whatever there is of the item that may not be on the disk yet, as far as it may be read.
int flushItem(const Location& item)
{
    const Descriptor open = openToFlush(item);
    struct stat status {};
    if (!open || fstat(open.get(), &status) != 0) {
        return 0;
    }
    return S_ISDIR(status.st_mode)   ? posix::flushFileSystem(open.get())
           : S_ISREG(status.st_mode) ? posix::flushFile(open.get())
                                     : 0;
}

// For which rename(2) returns EINVAL or, from another mount of the same file system, with EXDEV.
bool isFolderIntoItself(const Location& target, const struct stat& source)
{
    return S_ISDIR(source.st_mode) && posix::isInside(target.folder.get(), Identity::of(source)).value_or(false);
}

Outcome requireMovable(const Transfer& transfer)
{
    const Location& source = transfer.source;
    struct stat status {};
    if (fstatat(source.folder.get(), source.path.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return failed(transfer.action, source, errno);
    }
    if (source.path.namesItself()) {
        return failed(transfer.action, source, EBUSY);
    }
    if (isFolderIntoItself(transfer.target, status)) {
        return failureBecause(transfer.action, source.path.text, intoItself);
    }
    const bool sourceFits = !source.path.endsInSlash || S_ISDIR(status.st_mode) || S_ISLNK(status.st_mode);
    const bool targetFits = !transfer.target.path.endsInSlash || S_ISDIR(status.st_mode);
    return sourceFits && targetFits ? Outcome::success() : failed(transfer.action, source, ENOTDIR);
}

Outcome moveByRenaming(const Transfer& transfer, bool isDurable)
{
    const Location& source = transfer.source;
    const Location& target = transfer.target;
    const auto rename = [](const Location& from, const Location& to) {
        return posix::renameExclusively(from.folder.get(), from.path.name.c_str(), to.folder.get(),
                                        to.path.name.c_str());
    };
    const int error = rename(source, target);
    if (error == EXDEV) {
        return moveByCopying(source, target);
    }
    if (error != 0) {
        return failed(transfer.action, error == EEXIST ? target : source, error);
    }
    if (!isDurable) {
        return Outcome::success();
    }
    if (const int flushError = posix::flushEntries(target.folder.get(), openToFlush(target).get())) {
        rename(target, source);
        return failed("write", target, flushError);
    }
    return Outcome::success();
}

} // namespace

Outcome copyItem(PathView source, PathView target, Existing existing)
{
    Transfer transfer{"copy", "write", source};
    Outcome outcome = transfer.locate(target);
    if (outcome.ok() && existing == Existing::replaced) {
        outcome = removeExisting(transfer);
    }
    if (!outcome.ok()) {
        return outcome;
    }
    StagedCopy copy(transfer.source, transfer.target, {.isDurable = existing == Existing::replaced});
    outcome = copy.build();
    if (outcome.ok()) {
        outcome = copy.publish();
    }
    if (outcome.ok()) {
        copy.keep();
    }
    return outcome;
}

Outcome moveItem(PathView source, PathView target, Existing existing)
{
    Transfer transfer{"move", "move", source};
    const bool replaces = existing == Existing::replaced;
    Outcome outcome = transfer.locate(target);
    if (outcome.ok()) {
        outcome = requireMovable(transfer);
    }
    if (outcome.ok() && replaces) {
        const int error = flushItem(transfer.source);
        outcome = error == 0 ? removeExisting(transfer) : failed(transfer.action, transfer.source, error);
    }
    return outcome.ok() ? moveByRenaming(transfer, replaces) : outcome;
}

Outcome removeItem(PathView path)
{
    constexpr const char* action = "remove";
    Location item;
    if (Outcome outcome = posix::locate(action, path, item); !outcome.ok()) {
        return outcome;
    }
    if (item.path.namesItself()) {
        // rmdir(2) would refuse too, but only after everything inside is gone.
        return failed(action, item, EBUSY);
    }
    struct stat status {};
    if (item.path.endsInSlash &&
        fstatat(item.folder.get(), item.path.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        !S_ISDIR(status.st_mode) && !S_ISLNK(status.st_mode)) {
        return failed(action, item, ENOTDIR);
    }
    return linux_os::removeEntry(item.folder.get(), item.path.name.c_str(), item.path.text);
}

namespace {

constexpr mode_t everybody = S_IRWXU | S_IRWXG | S_IRWXO; // less the umask

// Returns an errno value; a folder that is there is none.
int makeOne(const char* path)
{
    if (mkdir(path, everybody) == 0) {
        return 0;
    }
    const int error = errno;
    struct stat status {};
    return error == EEXIST && stat(path, &status) == 0 && S_ISDIR(status.st_mode) ? 0 : error;
}

} // namespace

Outcome createFolder(PathView path)
{
    constexpr const char* action = "create";
    const std::optional<std::string> wanted = fileSystemRepresentation(path);
    if (!wanted || wanted->empty()) {
        return posix::nothingThere(action, path);
    }
    // Upwards to the innermost folder that is there or can be made, then down again. A zero ends the path early.
    std::string text = *wanted;
    std::size_t length = text.size();
    int error = makeOne(text.c_str());
    while (error == ENOENT) {
        const std::size_t end = text.find_last_not_of('/', length - 1);
        const std::size_t slash = end == std::string::npos ? end : text.rfind('/', end);
        if (slash == std::string::npos || slash == 0) {
            break;
        }
        text[slash] = '\0';
        length = slash;
        error = makeOne(text.c_str());
    }
    while (error == 0 && length < text.size()) {
        text[length] = '/';
        length = std::min(text.find('\0', length), text.size());
        error = makeOne(text.c_str());
    }
    return error == 0 ? Outcome::success() : systemFailure(action, text.c_str(), error);
}

} // namespace platform
