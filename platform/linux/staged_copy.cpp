#include "platform/linux/staged_copy.h"

#include "platform/linux/extended_attributes.h"
#include "platform/linux/folder_identity.h"
#include "platform/linux/publish.h"
#include "platform/linux/removability.h"
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

StagedCopy::StagedCopy(const Location& source, const Location& target, CopyPurpose purpose)
    : m_source(source), m_target(target), m_purpose(purpose)
{
}

StagedCopy::~StagedCopy()
{
    if (!m_temporaryName.empty()) {
        discardEntry(m_target.folder.get(), m_temporaryName.c_str());
    }
}

Outcome StagedCopy::build()
{
    if (Outcome outcome = check(); !outcome.ok()) {
        return outcome;
    }
    if (S_ISREG(m_status.st_mode)) {
        return buildFile();
    }
    return S_ISDIR(m_status.st_mode) ? buildFolder() : buildSpecial();
}

Outcome StagedCopy::check()
{
    const int sourceFolder = m_source.folder.get();
    const char* name = m_source.path.name.c_str();
    if (fstatat(sourceFolder, name, &m_status, AT_SYMLINK_NOFOLLOW) != 0) {
        return failed(CopyFailure::ofSource(errno));
    }
    if (m_source.path.endsInSlash && !S_ISDIR(m_status.st_mode) && !S_ISLNK(m_status.st_mode)) {
        return failed(CopyFailure::ofSource(ENOTDIR));
    }
    struct stat existing {};
    if (fstatat(m_target.folder.get(), m_target.path.name.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0) {
        return failed(CopyFailure::ofTarget(EEXIST));
    }
    if (errno != ENOENT || fstat(m_target.folder.get(), &m_targetFolder) != 0) {
        return failed(CopyFailure::ofTarget(errno));
    }
    if (m_target.path.endsInSlash && !S_ISDIR(m_status.st_mode)) {
        return failed(CopyFailure::ofTarget(ENOTDIR));
    }
    if (S_ISDIR(m_status.st_mode) && isInside(m_target.folder.get(), Identity::of(m_status)).value_or(false)) {
        return failed(CopyFailure::because("a folder can't be put into itself"));
    }
    if (m_purpose == CopyPurpose::copy) {
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
    if (const CopyFailure failure = openFile(m_source.folder.get(), m_source.path.name.c_str(), source)) {
        return failed(failure);
    }
    m_status = source.status;
    struct stat made {};
    if (const int error = makeFile(); error != 0 || fstat(m_made.get(), &made) != 0) {
        return failed(CopyFailure::ofTarget(error != 0 ? error : errno));
    }
    dropInheritedLists(m_made.get(), false);
    if (const CopyFailure failure = EntryCopier().fill(source, m_made.get(), Owner::of(made))) {
        return failed(failure);
    }
    return Outcome::success();
}

// An unnamed file where it can get its name later, for which there has to be a /proc; answers an errno value.
int StagedCopy::makeFile()
{
    const int folder = m_target.folder.get();
    constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
    if (access("/proc/self/fd", X_OK) == 0) {
        m_made = Descriptor(retried([&] { return openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, ownerOnly); }));
        // EISDIR: a kernel, EOPNOTSUPP and EINVAL: a file system that doesn't know O_TMPFILE.
        if (m_made || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) {
            return m_made ? 0 : errno;
        }
    }
    for (int attempt = 0; attempt < attempts; ++attempt) {
        std::string name = temporaryName();
        m_made = Descriptor(retried([&] {
            return openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownerOnly);
        }));
        if (m_made) {
            m_temporaryName = std::move(name);
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
    const int folder = m_target.folder.get();
    for (int attempt = 0; attempt < attempts; ++attempt) {
        std::string name = temporaryName();
        if (mkdirat(folder, name.c_str(), S_IRWXU) == 0) {
            m_temporaryName = std::move(name);
            m_made = Descriptor(retried([&] {
                return openat(folder, m_temporaryName.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            }));
            if (!m_made) {
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
    dropInheritedLists(m_made.get(), true);
    if (fstat(m_made.get(), &status) != 0) {
        return false;
    }
    if ((status.st_mode & S_IRWXU) == S_IRWXU) {
        return true;
    }
    return fchmod(m_made.get(), (status.st_mode & 07777) | S_IRWXU) == 0 &&
           fchown(m_made.get(), static_cast<uid_t>(-1), getegid()) == 0;
}

Outcome StagedCopy::buildFolder()
{
    const Descriptor source(retried([&] {
        return openat(m_source.folder.get(), m_source.path.name.c_str(),
                      O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    }));
    if (!source || fstat(source.get(), &m_status) != 0) {
        return failed(CopyFailure::ofSource(errno));
    }
    if (Outcome outcome = makeTemporaryFolder(); !outcome.ok()) {
        return outcome;
    }
    return copyTree(m_purpose, source.get(), m_made.get(), m_source.path.text, m_target.path.text,
                    Identity::of(m_targetFolder));
}

Outcome StagedCopy::buildSpecial()
{
    if (Outcome outcome = makeTemporaryFolder(); !outcome.ok()) {
        return outcome;
    }
    if (const CopyFailure failure =
            copySpecial(m_source.folder.get(), m_source.path.name.c_str(), m_made.get(), specialName)) {
        return failed(failure);
    }
    return Outcome::success();
}

Outcome StagedCopy::flush() const
{
    // One pass over the file system is quicker than one for each file of a tree.
    const int result =
        retried([this] { return S_ISREG(m_status.st_mode) ? fsync(m_made.get()) : syncfs(m_made.get()); });
    return result == 0 ? Outcome::success() : failed(CopyFailure::ofTarget(errno));
}

Outcome StagedCopy::publish()
{
    const int folder = m_target.folder.get();
    const char* name = m_target.path.name.c_str();
    int error = 0;
    if (m_temporaryName.empty()) {
        error = linkUnnamed(m_made.get(), folder, name);
    } else if (isSpecial(m_status)) {
        error = renameWithoutReplacing(m_made.get(), specialName, folder, name);
    } else {
        error = renameWithoutReplacing(folder, m_temporaryName.c_str(), folder, name);
        if (error == 0) {
            m_temporaryName.clear();
        }
    }
    return error == 0 ? Outcome::success() : failed(CopyFailure::ofTarget(error));
}

Outcome StagedCopy::flushName() const
{
    const Descriptor folder(
        retried([this] { return openat(m_target.folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    // A folder that may be written but not read can't be opened for that; then its whole file system is.
    const int result = retried([&] { return folder ? fsync(folder.get()) : syncfs(m_made.get()); });
    return result == 0 || errno == EINVAL ? Outcome::success() : failed(CopyFailure::ofTarget(errno));
}

void StagedCopy::withdraw() const
{
    const int folder = m_target.folder.get();
    const char* name = m_target.path.name.c_str();
    if (isSpecial(m_status)) {
        unlinkat(folder, name, 0);
        return;
    }
    struct stat made {};
    struct stat published {};
    if (fstat(m_made.get(), &made) == 0 && fstatat(folder, name, &published, AT_SYMLINK_NOFOLLOW) == 0 &&
        Identity::of(made) == Identity::of(published)) {
        discardEntry(folder, name);
    }
}

} // namespace platform::linux_os
