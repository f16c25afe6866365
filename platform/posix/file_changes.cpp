// The changing half of platform/file_manager.h: what is refused, and the order in which things happen.

#include "platform/file_manager.h"

#include "platform/posix/copy_tree.h"
#include "platform/posix/failure.h"
#include "platform/posix/flush.h"
#include "platform/posix/identity.h"
#include "platform/posix/item_path.h"
#include "platform/posix/moved_source.h"
#include "platform/posix/names.h"
#include "platform/posix/removal_check.h"
#include "platform/posix/remove_tree.h"
#include "platform/posix/staged_copy.h"
#include "platform/signal_block.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <optional>
#include <string>
#include <utility>

namespace platform {

using posix::Descriptor;
using posix::Failure;
using posix::failureBecause;
using posix::Identity;
using posix::intoItself;
using posix::Location;
using posix::StagedCopy;
using posix::systemFailure;

namespace {

constexpr const char* wouldTakeSource = "the source would be removed with it";

// A copy or a move: its two places, and the signals that its own system calls may raise.
struct Transfer {
    bool isMove;
    PathView sourcePath;
    Existing existing;
    Location source{};
    Location target{};
    struct stat status {}; // the source's
    SignalBlock noFileSizeSignal{SIGXFSZ};
    SignalBlock noLeaseSignal{SIGIO};

    const char* action() const { return isMove ? "move" : "copy"; }
    bool replaces() const { return existing == Existing::replaced; }
    Outcome failed(const Failure& failure) const
    {
        return failure.outcome(action(), source.path.text, target.path.text);
    }
};

// Whether the source of a copy could be read and that of a move removed, as far as that can be seen: asked before
// anything goes for it, or comes of it.
int errorOfTaking(const Transfer& transfer)
{
    const int folder = transfer.source.folder.get();
    const char* name = transfer.source.path.name.c_str();
    if (!transfer.isMove) {
        return S_ISREG(transfer.status.st_mode) && faccessat(folder, name, R_OK, AT_EACCESS) != 0 ? errno : 0;
    }
    struct stat around {};
    if (const int error = posix::errorOfRemovingFrom(folder)) {
        return error;
    }
    return fstat(folder, &around) == 0 ? posix::errorOfRemovingEntry(folder, around, name) : errno;
}

// What is refused before anything is touched. Into itself: rename(2) returns EINVAL or, from another mount of the same
// file system, EXDEV, and a copy would never end.
Failure requirePossible(Transfer& transfer)
{
    const Location& source = transfer.source;
    const Location& target = transfer.target;
    if (fstatat(source.folder.get(), source.path.name.c_str(), &transfer.status, AT_SYMLINK_NOFOLLOW) != 0) {
        return Failure::ofSource(errno);
    }
    const mode_t mode = transfer.status.st_mode;
    if (transfer.isMove && source.path.namesItself()) {
        return Failure::ofSource(EBUSY);
    }
    if (source.path.endsInSlash && !S_ISDIR(mode) && !S_ISLNK(mode)) {
        return Failure::ofSource(ENOTDIR);
    }
    struct stat existing {};
    const bool isTaken = fstatat(target.folder.get(), target.path.name.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0;
    if (isTaken && !transfer.replaces()) {
        return Failure::ofTarget(EEXIST);
    }
    if (!isTaken && errno != ENOENT) {
        return Failure::ofTarget(errno);
    }
    if (target.path.endsInSlash && !S_ISDIR(mode)) {
        return Failure::ofTarget(ENOTDIR);
    }
    if (const int error = isTaken ? errorOfTaking(transfer) : 0) {
        return Failure::ofSource(error);
    }
    const bool isIntoItself =
        S_ISDIR(mode) && posix::isInside(target.folder.get(), Identity::of(transfer.status)).value_or(false);
    return isIntoItself ? Failure::because(intoItself) : Failure{};
}

Outcome prepare(Transfer& transfer, PathView target)
{
    Outcome outcome = posix::locate(transfer.action(), transfer.sourcePath, transfer.source);
    if (outcome.ok()) {
        outcome = posix::locate("write", target, transfer.target);
    }
    return outcome.ok() ? transfer.failed(requirePossible(transfer)) : outcome;
}

// Removes what is at the target. It loses its name before it goes for good: only then can be seen that the source isn't
// the same item by a name that this file system takes for another spelling, or by another way that leads there.
Outcome removeExisting(const Transfer& transfer)
{
    constexpr const char* remove = "remove";
    const Location& target = transfer.target;
    const int folder = target.folder.get();
    const char* name = target.path.name.c_str();
    if (target.path.namesItself()) {
        return systemFailure(remove, target.path.text, EBUSY);
    }
    const std::string hidden = posix::temporaryName();
    posix::Hiding hiding(folder, name, hidden);
    if (const int error = hiding.error()) {
        // ENOENT: it is gone already. EXDEV: a folder of an overlay's lower layer.
        return error == ENOENT  ? Outcome::success()
               : error == EXDEV ? posix::removeEntry(folder, name, target.path.text)
                                : systemFailure(remove, target.path.text, error);
    }
    if (!posix::canBeReached(transfer.sourcePath)) {
        return failureBecause(remove, target.path.text, wouldTakeSource);
    }
    Outcome outcome = posix::removeEntry(folder, hiding.name(), target.path.text);
    if (outcome.ok()) {
        hiding.itemIsGone();
    }
    return outcome;
}

// The copy is whole and on the disk before the source goes.
Outcome moveByCopying(const Transfer& transfer)
{
    const Location& source = transfer.source;
    const int folder = source.folder.get();
    const char* name = source.path.name.c_str();
    StagedCopy copy(source, transfer.target, {.isMove = true, .isDurable = true});
    Outcome outcome = transfer.failed(Failure::ofSource(errorOfTaking(transfer)));
    if (outcome.ok()) {
        outcome = copy.build();
    }
    if (outcome.ok()) {
        outcome = posix::requireUnchanged(folder, name, source.path.text, copy.copied());
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
    outcome = posix::removeCopied(folder, name, source.path.text, copy.copied());
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

bool mayChangeEntries(const Location& item)
{
    return faccessat(item.folder.get(), ".", W_OK | X_OK, AT_EACCESS) == 0;
}

// On which side a rename was refused.
Failure renameFailure(const Transfer& transfer, int error)
{
    switch (error) {
    case EEXIST:
    case ENOSPC:
    case EDQUOT:
    case ENAMETOOLONG:
    case EMLINK:
        return Failure::ofTarget(error);
    case EACCES:
    case EPERM:
    case EROFS:
        return mayChangeEntries(transfer.source) && !mayChangeEntries(transfer.target) ? Failure::ofTarget(error)
                                                                                       : Failure::ofSource(error);
    default:
        return Failure::ofSource(error);
    }
}

Outcome moveByRenaming(const Transfer& transfer)
{
    const auto rename = [](const Location& from, const Location& to) {
        return posix::renameExclusively(from.folder.get(), from.path.name.c_str(), to.folder.get(),
                                        to.path.name.c_str());
    };
    const Location& target = transfer.target;
    const int error = rename(transfer.source, target);
    if (error == EXDEV) {
        return moveByCopying(transfer);
    }
    if (error != 0) {
        return transfer.failed(renameFailure(transfer, error));
    }
    const int flushError =
        transfer.replaces() ? posix::flushEntries(target.folder.get(), openToFlush(target).get()) : 0;
    if (flushError != 0) {
        rename(target, transfer.source);
    }
    return transfer.failed(Failure::ofTarget(flushError));
}

} // namespace

Outcome copyItem(PathView source, PathView target, Existing existing)
{
    Transfer transfer{false, source, existing};
    Outcome outcome = prepare(transfer, target);
    if (outcome.ok() && transfer.replaces()) {
        outcome = removeExisting(transfer);
    }
    if (!outcome.ok()) {
        return outcome;
    }
    StagedCopy copy(transfer.source, transfer.target, {.isDurable = transfer.replaces()});
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
    Transfer transfer{true, source, existing};
    Outcome outcome = prepare(transfer, target);
    if (outcome.ok() && transfer.replaces()) {
        outcome = transfer.failed(Failure::ofSource(flushItem(transfer.source)));
    }
    if (outcome.ok() && transfer.replaces()) {
        outcome = removeExisting(transfer);
    }
    return outcome.ok() ? moveByRenaming(transfer) : outcome;
}

Outcome removeItem(PathView path)
{
    constexpr const char* action = "remove";
    const auto failed = [&](const Location& item, int error) { return systemFailure(action, item.path.text, error); };
    Location item;
    if (Outcome outcome = posix::locate(action, path, item); !outcome.ok()) {
        return outcome;
    }
    if (item.path.namesItself()) {
        // rmdir(2) would refuse too, but only after everything inside is gone.
        return failed(item, EBUSY);
    }
    struct stat status {};
    if (item.path.endsInSlash &&
        fstatat(item.folder.get(), item.path.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        !S_ISDIR(status.st_mode) && !S_ISLNK(status.st_mode)) {
        return failed(item, ENOTDIR);
    }
    return posix::removeEntry(item.folder.get(), item.path.name.c_str(), item.path.text);
}

Outcome createFolder(PathView path)
{
    constexpr const char* action = "create";
    constexpr mode_t everybody = S_IRWXU | S_IRWXG | S_IRWXO; // less the umask
    const std::optional<std::string> wanted = fileSystemRepresentation(path);
    if (!wanted || wanted->empty()) {
        return posix::nothingThere(action, path);
    }
    // From the outermost folder on. What is there already says so in many ways; whether it is a folder shows in the
    // next.
    for (std::size_t end = 0; end != std::string::npos;) {
        end = wanted->find('/', end + 1);
        const std::string part = wanted->substr(0, end);
        struct stat status {};
        const int error = mkdir(part.c_str(), everybody) == 0 ? 0 : errno;
        const bool isThere = error == 0 || (error == EEXIST && end != std::string::npos) ||
                             (stat(part.c_str(), &status) == 0 && S_ISDIR(status.st_mode));
        if (!isThere) {
            return systemFailure(action, part, error);
        }
    }
    return Outcome::success();
}

} // namespace platform
