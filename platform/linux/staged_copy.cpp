#include "platform/linux/staged_copy.h"

#include "platform/linux/extended_attributes.h"
#include "platform/linux/removal_check.h"
#include "platform/posix/access_lists.h"
#include "platform/posix/failure.h"
#include "platform/posix/flush.h"
#include "platform/posix/moved_source.h"
#include "platform/posix/names.h"
#include "platform/posix/remove_tree.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform::linux_os {

using posix::discardEntry;
using posix::Failure;
using posix::Identity;
using posix::Location;
using posix::openAt;
using posix::openFile;
using posix::OpenFile;
using posix::requireRest;
using posix::temporaryName;

namespace {

// The name of a link, FIFO or device inside its temporary folder.
constexpr const char* specialName = "item";

constexpr int attempts = 8; // at a temporary name that nothing has

// Gives an unnamed file its name; returns an errno value, EEXIST when the name is taken. EBADF when another file is at
// the descriptor's number there, as it may be in a host that does strange things with its threads.
int linkUnnamed(int file, int folder, const char* name)
{
    const std::string path = ownDescriptors + std::to_string(file);
    struct stat wanted {};
    struct stat found {};
    if (fstat(file, &wanted) != 0 || stat(path.c_str(), &found) != 0) {
        return errno;
    }
    if (Identity::of(found) != Identity::of(wanted)) {
        return EBADF;
    }
    return linkat(AT_FDCWD, path.c_str(), folder, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

bool isSpecial(const struct stat& status)
{
    return !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

} // namespace

StagedCopy::StagedCopy(const Location& source, const Location& target, const CopyOptions& options)
    : source_(source), target_(target), options_(options)
{
}

StagedCopy::~StagedCopy()
{
    if (removeOnExit_) {
        withdraw();
    }
    if (!temporaryName_.empty()) {
        discardEntry(target_.folder.get(), temporaryName_.c_str());
    }
}

Outcome StagedCopy::build()
{
    if (fstatat(source_.folder.get(), source_.path.name.c_str(), &status_, AT_SYMLINK_NOFOLLOW) != 0) {
        return failed(Failure::ofSource(errno));
    }
    if (const int error = options_.isMove ? errorOfRemoving() : 0) {
        return failed(Failure::ofSource(error));
    }
    copied_ = {};
    Outcome outcome = S_ISREG(status_.st_mode) ? buildFile() : isFolder() ? buildFolder() : buildSpecial();
    copied_.close();
    return outcome;
}

// Of the source, as far as it can be seen.
int StagedCopy::errorOfRemoving() const
{
    const int sourceFolder = source_.folder.get();
    struct stat folder {};
    if (const int error = errorOfRemovingFrom(sourceFolder)) {
        return error;
    }
    return fstat(sourceFolder, &folder) == 0 ? errorOfRemovingEntry(sourceFolder, folder, source_.path.name.c_str())
                                             : errno;
}

Outcome StagedCopy::buildFile()
{
    OpenFile source;
    Failure failure = openFile(source_.folder.get(), source_.path.name.c_str(), source);
    if (!failure && options_.isMove) {
        failure = requireRest(source);
    }
    if (failure) {
        return failed(failure);
    }
    status_ = source.status;
    copied_.add(posix::rootPlace, status_);
    struct stat made {};
    if (const int error = makeFile(); error != 0 || fstat(made_.get(), &made) != 0) {
        return failed(Failure::ofTarget(error != 0 ? error : errno));
    }
    posix::dropAccessLists(made_.get());
    failure = FileCopier(options_, options_.isDurable).fill(source, made_.get(), Owner::of(made));
    if (const int error = failure ? 0 : posix::errorOfClosing(made_.get())) {
        failure = Failure::ofTarget(error);
    }
    return failed(failure);
}

// An unnamed file where it can get its name later, for which there has to be a /proc; returns an errno value.
int StagedCopy::makeFile()
{
    const int folder = target_.folder.get();
    constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
    if (usesUnnamedFiles_ && access(ownDescriptors, X_OK) == 0) {
        made_ = openAt(folder, ".", O_TMPFILE | O_WRONLY, ownerOnly);
        // EISDIR: a kernel, EOPNOTSUPP and EINVAL: a file system that doesn't know O_TMPFILE.
        if (made_ || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) {
            return made_ ? 0 : errno;
        }
    }
    for (int attempt = 0; attempt < attempts; ++attempt) {
        std::string name = temporaryName();
        made_ = openAt(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, ownerOnly);
        if (made_) {
            temporaryName_ = std::move(name);
            return 0;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return errno;
}

Outcome StagedCopy::makeTemporaryFolder()
{
    const int folder = target_.folder.get();
    for (int attempt = 0; attempt < attempts; ++attempt) {
        std::string name = temporaryName();
        if (mkdirat(folder, name.c_str(), S_IRWXU) == 0) {
            temporaryName_ = std::move(name);
            made_ = openAt(folder, temporaryName_.c_str(), posix::folderItself);
            if (!made_) {
                break;
            }
            return takeOver() ? Outcome::success() : failed(Failure::ofTarget(errno));
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return failed(Failure::ofTarget(errno));
}

// Frees the temporary folder from what it inherits. A default access list may have left its owner without rights; the
// group then becomes the one that entries get, for changing the mode can cost the set-group-ID bit.
bool StagedCopy::takeOver() const
{
    struct stat status {};
    posix::dropAccessLists(made_.get());
    if (fstat(made_.get(), &status) != 0) {
        return false;
    }
    if ((status.st_mode & S_IRWXU) == S_IRWXU) {
        return true;
    }
    return fchmod(made_.get(), (status.st_mode & 07777) | S_IRWXU) == 0 &&
           fchown(made_.get(), static_cast<uid_t>(-1), getegid()) == 0;
}

Outcome StagedCopy::buildFolder()
{
    if (Outcome outcome = makeTemporaryFolder(); !outcome.ok()) {
        return outcome;
    }
    struct stat place {};
    if (fstat(target_.folder.get(), &place) != 0) {
        return failed(Failure::ofTarget(errno));
    }
    Failure failure = copyTree(options_, source_.folder.get(), source_.path.name.c_str(),
                               {made_.get(), temporaryName_, Identity::of(place)}, copied_, status_);
    if (!failure && options_.isDurable && posix::isFlushedAsAWhole(made_.get())) {
        failure = Failure::ofTarget(posix::flushFileSystem(made_.get()));
    }
    return failed(failure);
}

Outcome StagedCopy::buildSpecial()
{
    if (Outcome outcome = makeTemporaryFolder(); !outcome.ok()) {
        return outcome;
    }
    if (Failure failure =
            copySpecial(source_.folder.get(), source_.path.name.c_str(), made_.get(), specialName, status_)) {
        return failed(failure);
    }
    copied_.add(posix::rootPlace, status_);
    return Outcome::success();
}

Outcome StagedCopy::publish()
{
    int error = giveName();
    if (isRefusedAsUnnamed(error)) {
        usesUnnamedFiles_ = false;
        if (Outcome outcome = build(); !outcome.ok()) {
            return outcome;
        }
        error = giveName();
    }
    removeOnExit_ = error == 0;
    if (error == 0 && options_.isDurable) {
        error = posix::flushEntries(target_.folder.get(), made_.get());
    }
    return error == 0 ? Outcome::success() : failed(Failure::ofTarget(error));
}

int StagedCopy::giveName()
{
    const int folder = target_.folder.get();
    const char* name = target_.path.name.c_str();
    const bool special = isSpecial(status_);
    const int seen =
        special ? fstatat(made_.get(), specialName, &published_, AT_SYMLINK_NOFOLLOW) : fstat(made_.get(), &published_);
    if (seen != 0) {
        return errno;
    }
    if (temporaryName_.empty()) {
        return linkUnnamed(made_.get(), folder, name);
    }
    if (special) {
        return posix::renameExclusively(made_.get(), specialName, folder, name);
    }
    const int error = posix::renameExclusively(folder, temporaryName_.c_str(), folder, name);
    if (error == 0) {
        temporaryName_.clear();
    }
    return error;
}

// A file without a name may be all that is refused, by a file system, a security module, a filter of system calls.
bool StagedCopy::isRefusedAsUnnamed(int error) const
{
    switch (error) {
    case 0:
    case EEXIST:
    case ENOSPC:
    case EDQUOT:
    case EIO:
    case EROFS:
        return false;
    default:
        return S_ISREG(status_.st_mode) && temporaryName_.empty();
    }
}

// What others have done to it by now stays.
void StagedCopy::withdraw() const
{
    const int folder = target_.folder.get();
    const char* name = target_.path.name.c_str();
    struct stat now {};
    struct stat made {};
    if (fstatat(folder, name, &now, AT_SYMLINK_NOFOLLOW) != 0) {
        return;
    }
    // Some file systems give an item another number with each name.
    const bool isOurs = isSpecial(status_) ? Identity::of(now) == Identity::of(published_)
                                           : fstat(made_.get(), &made) == 0 && Identity::of(now) == Identity::of(made);
    if (isOurs) {
        posix::withdrawCopy(folder, name, copied_);
    }
}

} // namespace platform::linux_os
