// The changing half of platform/file_manager.h: what is refused, and the order in which things happen.

#include "platform/file_manager.h"

#include "platform/linux/item_path.h"
#include "platform/linux/publish.h"
#include "platform/linux/remove_tree.h"
#include "platform/linux/staged_copy.h"
#include "platform/linux/system_error.h"
#include "platform/linux/tree_walk.h"
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

using linux_os::Descriptor;
using linux_os::failure;
using linux_os::Identity;
using linux_os::ItemPath;
using linux_os::Location;
using linux_os::retried;
using linux_os::StagedCopy;
using linux_os::systemFailure;

namespace {

constexpr const char* intoItself = "a folder can't be put into itself";

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
        Outcome outcome = linux_os::locate(action, sourcePath, source);
        return outcome.ok() ? linux_os::locate(actionOnTarget, targetPath, target) : outcome;
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
    const std::string hidden = linux_os::temporaryName();
    linux_os::Hiding hiding(folder, name, hidden);
    if (const int error = hiding.error()) {
        // ENOENT: it is gone already. EXDEV: a folder of an overlay's lower layer.
        return error == ENOENT  ? Outcome::success()
               : error == EXDEV ? linux_os::removeEntry(folder, name, target.path.text)
                                : failed(action, target, error);
    }
    if (!existence(transfer.sourcePath).exists) {
        return failure(action, target.path.text, "the source would go with it");
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

// Nothing where the item may not be read.
Descriptor openToFlush(const Location& item)
{
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    return Descriptor(retried([&] { return openat(item.folder.get(), item.path.name.c_str(), flags); }));
}

// Whatever there is of the item that may not be on the disk yet, as far as it may be read.
int flushItem(const Location& item)
{
    const Descriptor open = openToFlush(item);
    struct stat status {};
    if (!open || fstat(open.get(), &status) != 0) {
        return 0;
    }
    const auto flush = [&] { return S_ISDIR(status.st_mode) ? syncfs(open.get()) : fsync(open.get()); };
    const bool holdsData = S_ISDIR(status.st_mode) || S_ISREG(status.st_mode);
    return !holdsData || retried(flush) == 0 ? 0 : errno;
}

// What rename(2) answers with EINVAL or, from another mount of the same file system, with EXDEV.
bool isFolderIntoItself(const Location& target, const struct stat& source)
{
    return S_ISDIR(source.st_mode) && linux_os::isInside(target.folder.get(), Identity::of(source)).value_or(false);
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
        return failure(transfer.action, source.path.text, intoItself);
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
        return linux_os::renameWithoutReplacing(from.folder.get(), from.path.name.c_str(), to.folder.get(),
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
    if (const int flushError = linux_os::flushEntries(target.folder.get(), openToFlush(target).get())) {
        rename(target, source);
        return failed("write", target, flushError);
    }
    return Outcome::success();
}

// What a link says, as a path of its own.
std::optional<ItemPath> textOfLink(int folder, const char* name)
{
    std::array<char, PATH_MAX> text{};
    const auto size = readlinkat(folder, name, text.data(), text.size());
    if (size <= 0) {
        return std::nullopt;
    }
    return ItemPath::ofBytes(std::string(text.data(), static_cast<std::size_t>(size)));
}

Descriptor openFolder(int from, const char* path)
{
    return Descriptor(retried([=] { return openat(from, path, O_PATH | O_DIRECTORY | O_CLOEXEC); }));
}

// A name on the way that leads nowhere; any other error leaves open what is there.
bool leadsNowhere(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

// An entry of a folder, and what is there.
struct Entry {
    int folder;
    const std::string& name;
    struct stat status {};
};

// One item has several entries only as a file with hard links. Of those in one folder the name tells them apart.
bool isSameEntry(const Entry& one, const Entry& other)
{
    if (Identity::of(one.status) != Identity::of(other.status)) {
        return false;
    }
    if (S_ISDIR(one.status.st_mode) || one.status.st_nlink == 1) {
        return true;
    }
    struct stat folder {};
    struct stat otherFolder {};
    return fstat(one.folder, &folder) != 0 || fstat(other.folder, &otherFolder) != 0 ||
           (Identity::of(folder) == Identity::of(otherFolder) && one.name == other.name);
}

bool goesWith(const Entry& removed, const Entry& kept)
{
    if (isSameEntry(removed, kept)) {
        return true;
    }
    if (!S_ISDIR(removed.status.st_mode)) {
        return false;
    }
    const Descriptor inner = S_ISDIR(kept.status.st_mode) ? openFolder(kept.folder, kept.name.c_str()) : Descriptor();
    return linux_os::isInside(inner ? inner.get() : kept.folder, Identity::of(removed.status)).value_or(true);
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
    if (Outcome outcome = linux_os::locate(action, path, item); !outcome.ok()) {
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

bool removalTakesAway(PathView removed, PathView kept)
{
    const std::optional<ItemPath> gone = ItemPath::of(removed);
    std::optional<ItemPath> next = ItemPath::of(kept);
    if (!gone || !next) {
        return false;
    }
    constexpr int mostLinks = 40; // as the kernel has it (path_resolution(7))
    const Descriptor goneFolder = openFolder(AT_FDCWD, gone->folder.c_str());
    Entry one{goneFolder.get(), gone->name};
    if (!goneFolder || fstatat(one.folder, one.name.c_str(), &one.status, AT_SYMLINK_NOFOLLOW) != 0) {
        return !leadsNowhere(errno);
    }
    Descriptor folder = openFolder(AT_FDCWD, next->folder.c_str());
    for (int links = 0; folder && links <= mostLinks; ++links) {
        Entry other{folder.get(), next->name};
        if (fstatat(other.folder, other.name.c_str(), &other.status, AT_SYMLINK_NOFOLLOW) != 0) {
            return !leadsNowhere(errno);
        }
        if (goesWith(one, other)) {
            return true;
        }
        if (!S_ISLNK(other.status.st_mode)) {
            return false;
        }
        std::optional<ItemPath> text = textOfLink(folder.get(), next->name.c_str());
        if (!text) {
            return true;
        }
        next = std::move(text);
        folder = openFolder(folder.get(), next->folder.c_str());
    }
    return !folder && !leadsNowhere(errno);
}

namespace {

constexpr mode_t everybody = S_IRWXU | S_IRWXG | S_IRWXO; // less the umask

// Answers an errno value; a folder that is there is none.
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
        return linux_os::nothingThere(action, path);
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
