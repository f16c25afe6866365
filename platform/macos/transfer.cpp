#include "platform/macos/transfer.h"

#include "platform/macos/item_identity.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <unistd.h>
#ifdef __APPLE__
#include <sys/acl.h>
#endif

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <memory>
#include <optional>
#include <random>
#include <system_error>
#include <type_traits>
#include <utility>

namespace platform::macos {

namespace {

#ifdef __APPLE__
constexpr int linksThemselves = O_SYMLINK;
#else
constexpr int linksThemselves = O_NOFOLLOW;
#endif

struct SplitPath {
    std::string path; // no trailing slashes
    bool endsInSlash = false;

    std::string name() const { return path.substr(path.rfind('/') + 1); }
    bool namesItself() const { return name().empty() || name() == "." || name() == ".."; }
    std::string folder() const
    {
        const std::size_t slash = path.rfind('/');
        return slash == std::string::npos ? std::string(".") : path.substr(0, slash + 1);
    }
};

std::optional<SplitPath> split(PathView text)
{
    auto bytes = fileSystemRepresentation(text);
    if (!bytes || bytes->empty()) {
        return std::nullopt;
    }
    SplitPath result{std::move(*bytes)};
    while (result.path.size() > 1 && result.path.back() == '/') {
        result.path.pop_back();
        result.endsInSlash = true;
    }
    return result;
}

Outcome find(std::string_view action, PathView path, Item& item, bool leavesItsPlace)
{
    const auto parts = split(path);
    if (!parts) {
        return posixFailure(action, {}, ENOENT);
    }
    item.path = parts->path;
    struct stat reached {};
    if (::lstat(item.path.c_str(), &item.status) != 0 ||
        (parts->endsInSlash && ::stat((item.path + "/").c_str(), &reached) != 0)) {
        return posixFailure(action, item.path, errno);
    }
    return leavesItsPlace && parts->namesItself() ? posixFailure(action, item.path, EBUSY) : Outcome::success();
}

// A descriptor that is closed in the end.
class Open {
public:
    Open(int folder, const char* name, int flags) : number_(::openat(folder, name, flags | O_NONBLOCK | O_CLOEXEC)) {}
    ~Open()
    {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    Open(const Open&) = delete;
    Open& operator=(const Open&) = delete;

    explicit operator bool() const { return number_ >= 0; }
    int get() const { return number_; }

private:
    int number_;
};

// What keeps even its owner from renaming or removing an item; the item is open.
class Restrictions {
public:
    explicit Restrictions(int item) : item_(item) {}

    int lift()
    {
        if (::fstat(item_, &status_) != 0) {
            return errno;
        }
#ifdef __APPLE__
        constexpr unsigned locks = UF_IMMUTABLE | UF_APPEND | SF_IMMUTABLE | SF_APPEND;
        if ((status_.st_flags & locks) != 0 && ::fchflags(item_, status_.st_flags & ~locks) != 0) {
            return errno;
        }
        list_.reset(::acl_get_fd_np(item_, ACL_TYPE_EXTENDED));
        const List none(list_ ? ::acl_init(1) : nullptr);
        if (list_ && (!none || ::acl_set_fd_np(item_, none.get(), ACL_TYPE_EXTENDED) != 0)) {
            return errno;
        }
#endif
        // Nobody but the owner, who would be kept out by the list that is missing now.
        const mode_t mode = S_ISDIR(status_.st_mode) ? S_IRWXU : status_.st_mode & S_IRWXU;
        return S_ISLNK(status_.st_mode) || ::fchmod(item_, mode) == 0 ? 0 : errno;
    }

    int putBack()
    {
        if (status_.st_mode == 0) {
            return 0; // not even looked at
        }
        if (!S_ISLNK(status_.st_mode) && ::fchmod(item_, status_.st_mode & 07777U) != 0) {
            return errno;
        }
#ifdef __APPLE__
        if ((list_ && ::acl_set_fd_np(item_, list_.get(), ACL_TYPE_EXTENDED) != 0) ||
            ::fchflags(item_, status_.st_flags) != 0) {
            return errno;
        }
#endif
        return 0;
    }

private:
    int item_;
    struct stat status_ {};
#ifdef __APPLE__
    struct Free {
        void operator()(acl_t list) const { ::acl_free(list); }
    };
    using List = std::unique_ptr<std::remove_pointer_t<acl_t>, Free>;
    List list_;
#endif
};

int renameInOneStep(int fromFolder, const char* from, int toFolder, const char* to)
{
#ifdef __APPLE__
    return ::renameatx_np(fromFolder, from, toFolder, to, RENAME_EXCL) == 0 ? 0 : errno;
#else
    return ::renameat2(fromFolder, from, toFolder, to, RENAME_NOREPLACE) == 0 ? 0 : errno;
#endif
}

// Takes the name by something empty of our own; whoever else wants it finds it taken.
int renameOverClaim(int fromFolder, const char* from, int toFolder, const char* to, bool isFolder)
{
    const int claim = isFolder ? ::mkdirat(toFolder, to, S_IRWXU)
                               : ::openat(toFolder, to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0);
    if (claim < 0) {
        return errno;
    }
    if (!isFolder) {
        ::close(claim);
    }
    struct stat claimed {};
    if (!isFolder && ::fstatat(toFolder, to, &claimed, AT_SYMLINK_NOFOLLOW) == 0 && claimed.st_size != 0) {
        return EEXIST; // somebody has put something else there
    }
    if (::renameat(fromFolder, from, toFolder, to) == 0) {
        return 0;
    }
    const int error = errno;
    for (int attempt = 0; attempt < 2 && ::unlinkat(toFolder, to, isFolder ? AT_REMOVEDIR : 0) != 0; ++attempt) {
        // Once more, for what passes: the claim would be in the way of the move's next attempt.
    }
    return error;
}

// "Can't" is no failure: a file system without flushes has none outstanding that a process could wait for.
bool cannotBeAsked(int error)
{
    return error == ENOTSUP || error == ENOTTY || error == EINVAL;
}

// What may not be read can't be flushed, and needs no reading to be written to.
int errorUnlessForbidden(int error)
{
    return error == EACCES ? 0 : error;
}

int flushFile(int item)
{
#ifdef __APPLE__
    if (::fcntl(item, F_FULLFSYNC) == 0) {
        return 0;
    }
    if (!cannotBeAsked(errno)) {
        return errno;
    }
#endif
    return ::fsync(item) == 0 || cannotBeAsked(errno) ? 0 : errno;
}

int flushVolume([[maybe_unused]] const std::string& path, [[maybe_unused]] int item)
{
#ifdef __APPLE__
    // Its answer is the error's number, and errno is what it was.
    int error = ::sync_volume_np(path.c_str(), SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT);
    if (cannotBeAsked(error)) {
        error = ::sync_volume_np(path.c_str(), SYNC_VOLUME_WAIT);
    }
    return cannotBeAsked(error) ? 0 : error;
#else
    return ::syncfs(item) == 0 ? 0 : errno;
#endif
}

} // namespace

Outcome posixFailure(std::string_view action, const std::string& path, int error)
{
    std::string words = "could not ";
    words.append(action).append(" ").append(shortened(path)).append(": ");
    return Outcome::failure(words.append(std::generic_category().message(error)));
}

Outcome findItem(std::string_view action, PathView path, Item& item)
{
    return find(action, path, item, false);
}

Outcome findRemovableItem(std::string_view action, PathView path, Item& item)
{
    return find(action, path, item, true);
}

Outcome findTarget(std::string_view action, const Item& source, PathView path, Existing existing, std::string& target)
{
    const auto parts = split(path);
    if (!parts) {
        return posixFailure(action, source.path, ENOENT);
    }
    const std::string_view verb = action == "copy" ? "write" : action;
    target = parts->path;
    struct stat status {};
    if (::lstat(target.c_str(), &status) == 0) {
        if (existing == Existing::refused) {
            return posixFailure(verb, target, EEXIST);
        }
        if (parts->namesItself()) {
            return posixFailure("remove", target, EBUSY);
        }
    } else if (errno != ENOENT || ::stat(parts->folder().c_str(), &status) != 0) {
        return posixFailure(verb, target, errno);
    }
    if (target.size() >= PATH_MAX) {
        return posixFailure(verb, target, ENAMETOOLONG);
    }
    if (parts->endsInSlash && !S_ISDIR(source.status.st_mode)) {
        return posixFailure(verb, target, ENOTDIR);
    }
    if (liesInside(target, source.status).value_or(false)) {
        return Outcome::failure("could not " + std::string(action) + " " + shortened(source.path) +
                                ": a folder can't be put into itself");
    }
    return Outcome::success();
}

std::string temporaryNameBeside(const std::string& path)
{
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz234567";
    std::random_device random;
    std::string name = path.substr(0, path.rfind('/') + 1) + ".folidex-";
    for (int count = 0; count < 16; ++count) {
        name.push_back(letters[random() % letters.size()]);
    }
    return name;
}

int renameExclusively(int fromFolder, const char* from, int toFolder, const char* to)
{
    const int error = renameInOneStep(fromFolder, from, toFolder, to);
    if (error != ENOTSUP && error != EINVAL) {
        return error;
    }
    struct stat status {};
    if (::fstatat(fromFolder, from, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    if (S_ISDIR(status.st_mode)) {
        return renameOverClaim(fromFolder, from, toFolder, to, true);
    }
    if (::linkat(fromFolder, from, toFolder, to, 0) != 0) {
        const bool noHardLinks = errno == EPERM || errno == ENOTSUP || errno == ENOSYS || errno == EMLINK;
        return noHardLinks ? renameOverClaim(fromFolder, from, toFolder, to, false) : errno;
    }
    if (::unlinkat(fromFolder, from, 0) != 0) {
        const int unlinkError = errno;
        ::unlinkat(toFolder, to, 0);
        return unlinkError;
    }
    return 0;
}

int publish(const std::string& temporary, const std::string& target)
{
    const auto rename = [&] { return renameExclusively(AT_FDCWD, temporary.c_str(), AT_FDCWD, target.c_str()); };
    int error = rename();
    if (error != EPERM && error != EACCES) {
        return error;
    }
    const Open item(AT_FDCWD, temporary.c_str(), O_RDONLY | linksThemselves);
    if (!item) {
        return error;
    }
    Restrictions restrictions(item.get());
    if (restrictions.lift() == 0) {
        error = rename();
    }
    if (const int putBackError = restrictions.putBack(); error == 0 && putBackError != 0) {
        unlock(AT_FDCWD, target.c_str());
        // Unfinished after all; the caller looks for it under its temporary name.
        ::rename(target.c_str(), temporary.c_str());
        return putBackError;
    }
    return error;
}

void unlock(int folder, const char* name)
{
    if (const Open item(folder, name, O_RDONLY | linksThemselves); item) {
        Restrictions(item.get()).lift();
        return;
    }
    struct stat status {};
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode)) {
        [[maybe_unused]] const int result = ::fchmodat(folder, name, S_IRWXU, AT_SYMLINK_NOFOLLOW); // unreadable
    }
}

int makeSpecialFile(const std::string& path, const struct stat& original)
{
    const mode_t type = original.st_mode & S_IFMT;
    if (type != S_IFIFO && type != S_IFCHR && type != S_IFBLK) {
        return ENOTSUP;
    }
    if ((type == S_IFIFO ? ::mkfifo(path.c_str(), 0600) : ::mknod(path.c_str(), type | 0600, original.st_rdev)) != 0) {
        return errno;
    }
#ifdef __APPLE__
    const timespec times[] = {original.st_atimespec, original.st_mtimespec};
#else
    const timespec times[] = {original.st_atim, original.st_mtim};
#endif
    // The owner is kept where permitted, and a set-id bit with it only.
    const bool kept = ::lchown(path.c_str(), original.st_uid, original.st_gid) == 0;
    const mode_t mode = original.st_mode & (kept ? 07777U : 01777U);
    return ::chmod(path.c_str(), mode) == 0 && ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0
               ? 0
               : errno;
}

int flushItem(const std::string& path)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))) {
        return 0; // nothing but a name
    }
    const Open item(AT_FDCWD, path.c_str(), O_RDONLY | linksThemselves);
    if (item) {
        return S_ISREG(status.st_mode) ? flushFile(item.get()) : flushVolume(path, item.get());
    }
    const std::string folder = SplitPath{path}.folder();
    const Open above(AT_FDCWD, folder.c_str(), O_RDONLY | O_DIRECTORY);
    return above ? flushVolume(folder, above.get()) : errorUnlessForbidden(errno);
}

int flushName(const std::string& path)
{
    const std::string folder = SplitPath{path}.folder();
    const Open item(AT_FDCWD, folder.c_str(), O_RDONLY | O_DIRECTORY);
    return item ? flushFile(item.get()) : errorUnlessForbidden(errno);
}

} // namespace platform::macos
