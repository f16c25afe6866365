#include "platform/posix/staged_copy.h"

#include "platform/posix/access_lists.h"
#include "platform/posix/copy_tree.h"
#include "platform/posix/flush.h"
#include "platform/posix/identity.h"
#include "platform/posix/moved_source.h"
#include "platform/posix/names.h"
#include "platform/posix/remove_tree.h"
#include "platform/posix/restrictions.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

namespace platform::posix {

namespace {

// The name of a link, FIFO or device inside its temporary folder.
constexpr const char* specialName = "item";

bool isSpecial(const struct stat& status)
{
    return !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

// Of a kernel (EISDIR) or a file system that doesn't know O_TMPFILE.
bool saysThereAreNone(int error)
{
    return error == EOPNOTSUPP || error == EISDIR || error == EINVAL;
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
    copied_ = {};
    const Failure failure = S_ISREG(status_.st_mode) ? buildFile() : isFolder() ? buildFolder() : buildSpecial();
    copied_.close();
    return failed(failure);
}

Failure StagedCopy::buildFile()
{
    ItemCopier copier(options_, options_.isDurable);
    OpenFile source;
    if (Failure failure = copier.open(source_.folder.get(), source_.path.name.c_str(), source)) {
        return failure;
    }
    copied_.add(rootPlace, source.status);
    FileTarget target{.folder = target_.folder.get(), .mayInherit = true};
    Failure failure;
    if (usesUnnamedFiles_) {
        failure = copier.copyFile(source, target, made_);
        usesUnnamedFiles_ = made_ || !saysThereAreNone(failure.error);
    }
    if (!usesUnnamedFiles_) {
        temporaryName_ = temporaryName();
        target.name = temporaryName_.c_str();
        failure = copier.copyFile(source, target, made_);
        if (!made_) {
            temporaryName_.clear();
        }
    }
    return failure ? std::move(failure) : Failure::ofTarget(errorOfClosing(made_.get()));
}

Failure StagedCopy::makeTemporaryFolder()
{
    const int folder = target_.folder.get();
    std::string name = temporaryName();
    if (mkdirat(folder, name.c_str(), S_IRWXU) != 0) {
        return Failure::ofTarget(errno);
    }
    temporaryName_ = std::move(name);
    made_ = openAt(folder, temporaryName_.c_str(), folderItself);
    return Failure::ofTarget(made_ ? takeOver(made_.get()) : errno);
}

Failure StagedCopy::buildFolder()
{
    if (Failure failure = makeTemporaryFolder()) {
        return failure;
    }
    Failure failure =
        copyTree(options_, source_.folder.get(), source_.path.name.c_str(), {made_.get(), temporaryName_}, copied_);
    const bool isFlushed = options_.isDurable && isFlushedAsAWhole(made_.get());
    return !failure && isFlushed ? Failure::ofTarget(flushFileSystem(made_.get())) : std::move(failure);
}

Failure StagedCopy::buildSpecial()
{
    Failure failure = makeTemporaryFolder();
    if (!failure) {
        copied_.add(rootPlace, status_);
        failure = ItemCopier(options_, false)
                      .copySpecial(source_.folder.get(), source_.path.name.c_str(), made_.get(), specialName, status_);
    }
    return failure;
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
        error = flushEntries(target_.folder.get(), made_.get());
    }
    return error == 0 ? Outcome::success() : failed(Failure::ofTarget(error));
}

int StagedCopy::giveName()
{
    const int folder = target_.folder.get();
    const char* name = target_.path.name.c_str();
    if (isSpecial(status_)) {
        return fstatat(made_.get(), specialName, &special_, AT_SYMLINK_NOFOLLOW) == 0
                   ? posix::publish(made_.get(), specialName, folder, name)
                   : errno;
    }
    if (temporaryName_.empty()) {
        return linkUnnamed(made_.get(), folder, name);
    }
    const int error = posix::publish(folder, temporaryName_.c_str(), folder, name);
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
    struct stat made = special_;
    const bool isKnown =
        fstatat(folder, name, &now, AT_SYMLINK_NOFOLLOW) == 0 && (isSpecial(status_) || fstat(made_.get(), &made) == 0);
    if (isKnown && Identity::of(now) == Identity::of(made)) {
        withdrawCopy(folder, name, copied_);
    }
}

} // namespace platform::posix
