#include "platform/linux/staged_copy.h"

#include "platform/linux/extended_attributes.h"
#include "platform/linux/publish.h"
#include "platform/linux/remove_tree.h"
#include "platform/linux/system_error.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform::linux_os {

namespace {

// The name of a link, FIFO or device inside its temporary folder.
constexpr const char* specialName = "item";

constexpr int attempts = 8; // at a temporary name that nothing has

bool isSpecial(const struct stat& status)
{
    return !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

} // namespace

StagedCopy::StagedCopy(const Location& source, const Location& target, const CopyAim& aim)
    : source_(source), target_(target), aim_(aim)
{
}

StagedCopy::~StagedCopy()
{
    if (isWithdrawn_) {
        withdraw();
    }
    if (!temporaryName_.empty()) {
        discardEntry(target_.folder.get(), temporaryName_.c_str());
    }
}

Outcome StagedCopy::build()
{
    if (Outcome outcome = check(); !outcome.ok()) {
        return outcome;
    }
    copied_ = {};
    Outcome outcome = S_ISREG(status_.st_mode) ? buildFile() : isFolder() ? buildFolder() : buildSpecial();
    copied_.close();
    return outcome;
}

Outcome StagedCopy::check()
{
    const int sourceFolder = source_.folder.get();
    const char* name = source_.path.name.c_str();
    if (fstatat(sourceFolder, name, &status_, AT_SYMLINK_NOFOLLOW) != 0) {
        return failed(CopyFailure::ofSource(errno));
    }
    if (source_.path.endsInSlash && !isFolder() && !S_ISLNK(status_.st_mode)) {
        return failed(CopyFailure::ofSource(ENOTDIR));
    }
    struct stat existing {};
    if (fstatat(target_.folder.get(), target_.path.name.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0) {
        return failed(CopyFailure::ofTarget(EEXIST));
    }
    if (errno != ENOENT || fstat(target_.folder.get(), &targetFolder_) != 0) {
        return failed(CopyFailure::ofTarget(errno));
    }
    if (target_.path.endsInSlash && !isFolder()) {
        return failed(CopyFailure::ofTarget(ENOTDIR));
    }
    if (isFolder() && isInside(target_.folder.get(), Identity::of(status_)).value_or(false)) {
        return failed(CopyFailure::because("a folder can't be put into itself"));
    }
    if (!aim_.isMove) {
        return Outcome::success();
    }
    struct stat folder {};
    int error = errorOfRemovingFrom(sourceFolder);
    if (error == 0) {
        error = fstat(sourceFolder, &folder) == 0 ? errorOfRemovingEntry(sourceFolder, folder, name) : errno;
    }
    return error == 0 ? Outcome::success() : failed(CopyFailure::ofSource(error));
}

Outcome StagedCopy::buildFile()
{
    OpenFile source;
    CopyFailure failure = openFile(source_.folder.get(), source_.path.name.c_str(), source);
    if (!failure && aim_.isMove) {
        failure = requireRest(source);
    }
    if (failure) {
        return failed(failure);
    }
    status_ = source.status;
    copied_.add("", status_);
    struct stat made {};
    if (const int error = makeFile(); error != 0 || fstat(made_.get(), &made) != 0) {
        return failed(CopyFailure::ofTarget(error != 0 ? error : errno));
    }
    dropInheritedLists(made_.get(), false);
    failure = FileCopier(aim_, aim_.isDurable).fill(source, made_.get(), Owner::of(made));
    if (const int error = failure ? 0 : errorOfClosing(made_.get())) {
        failure = CopyFailure::ofTarget(error);
    }
    return failure ? failed(failure) : Outcome::success();
}

// An unnamed file where it can get its name later, for which there has to be a /proc; answers an errno value.
int StagedCopy::makeFile()
{
    const int folder = target_.folder.get();
    constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
    if (usesUnnamedFiles_ && access("/proc/self/fd", X_OK) == 0) {
        made_ = Descriptor(retried([&] { return openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, ownerOnly); }));
        // EISDIR: a kernel, EOPNOTSUPP and EINVAL: a file system that doesn't know O_TMPFILE.
        if (made_ || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) {
            return made_ ? 0 : errno;
        }
    }
    for (int attempt = 0; attempt < attempts; ++attempt) {
        std::string name = temporaryName();
        made_ = Descriptor(retried([&] {
            return openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownerOnly);
        }));
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
            made_ = Descriptor(retried([&] {
                return openat(folder, temporaryName_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            }));
            if (!made_) {
                break;
            }
            return takeOver() ? Outcome::success() : failed(CopyFailure::ofTarget(errno));
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return failed(CopyFailure::ofTarget(errno));
}

// Frees the temporary folder from what it inherits. A default access list may have left its owner without rights; the
// group then becomes the one that entries get, for changing the mode can cost the set-group-ID bit.
bool StagedCopy::takeOver() const
{
    struct stat status {};
    dropInheritedLists(made_.get(), true);
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
    const Descriptor source(retried([&] {
        return openat(source_.folder.get(), source_.path.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    }));
    if (!source || fstat(source.get(), &status_) != 0) {
        return failed(CopyFailure::ofSource(errno));
    }
    if (Outcome outcome = makeTemporaryFolder(); !outcome.ok()) {
        return outcome;
    }
    Outcome outcome = copyTree(aim_, source.get(), made_.get(), source_.path.text, target_.path.text,
                               Identity::of(targetFolder_), copied_);
    if (outcome.ok() && aim_.isDurable && isFlushedAsAWhole(made_.get()) &&
        retried([this] { return syncfs(made_.get()); }) != 0) {
        return failed(CopyFailure::ofTarget(errno));
    }
    return outcome;
}

Outcome StagedCopy::buildSpecial()
{
    if (Outcome outcome = makeTemporaryFolder(); !outcome.ok()) {
        return outcome;
    }
    if (const CopyFailure failure =
            copySpecial(source_.folder.get(), source_.path.name.c_str(), made_.get(), specialName, status_)) {
        return failed(failure);
    }
    copied_.add("", status_);
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
    isWithdrawn_ = error == 0;
    if (error == 0 && aim_.isDurable) {
        error = flushEntries(target_.folder.get(), made_.get());
    }
    return error == 0 ? Outcome::success() : failed(CopyFailure::ofTarget(error));
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
        return renameWithoutReplacing(made_.get(), specialName, folder, name);
    }
    const int error = renameWithoutReplacing(folder, temporaryName_.c_str(), folder, name);
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

void StagedCopy::withdraw() const
{
    const int folder = target_.folder.get();
    const char* name = target_.path.name.c_str();
    struct stat now {};
    if (fstatat(folder, name, &now, AT_SYMLINK_NOFOLLOW) == 0 && Identity::of(now) == Identity::of(published_) &&
        (isFolder() || (now.st_size == published_.st_size && now.st_mtim.tv_sec == published_.st_mtim.tv_sec &&
                        now.st_mtim.tv_nsec == published_.st_mtim.tv_nsec))) {
        discardEntry(folder, name);
    }
}

} // namespace platform::linux_os
