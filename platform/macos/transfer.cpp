#include "platform/macos/transfer.h"

#include "platform/macos/item_identity.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <system_error>
#include <utility>

namespace platform::cocoa {

namespace {

struct SplitPath {
    std::string path; // no trailing slashes
    bool endsInSlash = false;

    std::string name() const { return path.substr(path.rfind('/') + 1); }
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
    const std::string name = parts->name();
    if (leavesItsPlace && (name.empty() || name == "." || name == "..")) {
        return posixFailure(action, item.path, EBUSY);
    }
    return Outcome::success();
}

} // namespace

Outcome posixFailure(std::string_view action, const std::string& path, int error)
{
    std::string words = "could not ";
    words.append(action).append(" ").append(path).append(": ").append(std::generic_category().message(error));
    return Outcome::failure(std::move(words));
}

Outcome findItem(std::string_view action, PathView path, Item& item)
{
    return find(action, path, item, false);
}

Outcome findRemovableItem(std::string_view action, PathView path, Item& item)
{
    return find(action, path, item, true);
}

Outcome findTarget(std::string_view action, const Item& source, PathView path, std::string& target)
{
    const auto parts = split(path);
    if (!parts) {
        return posixFailure(action, source.path, ENOENT);
    }
    const std::string_view verb = action == "copy" ? "write" : action;
    target = parts->path;
    struct stat status {};
    if (::lstat(target.c_str(), &status) == 0) {
        return posixFailure(verb, target, EEXIST);
    }
    if (errno != ENOENT || ::stat(parts->folder().c_str(), &status) != 0) {
        return posixFailure(verb, target, errno);
    }
    if (parts->endsInSlash && !S_ISDIR(source.status.st_mode)) {
        return posixFailure(verb, target, ENOTDIR);
    }
    if (liesInside(target, source.status).value_or(false)) {
        return Outcome::failure("could not " + std::string(action) + " " + source.path +
                                ": a folder can't be put into itself");
    }
    return Outcome::success();
}

std::string temporaryNameBeside(const std::string& target)
{
    static std::atomic<unsigned> count{0};
    const std::string folder = SplitPath{target}.folder();
    const std::string start = (folder == "." ? std::string() : folder) + ".folidex-" + std::to_string(::getpid()) + "-";
    struct stat status {};
    std::string name;
    do {
        name = start + std::to_string(count.fetch_add(1));
    } while (::lstat(name.c_str(), &status) == 0); // left by a process that was killed
    return name;
}

int renameExclusively(const std::string& from, const std::string& to)
{
#ifdef __APPLE__
    const int result = ::renamex_np(from.c_str(), to.c_str(), RENAME_EXCL);
#else
    const int result = ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
#endif
    if (result == 0 || (errno != ENOTSUP && errno != EINVAL)) {
        return result == 0 ? 0 : errno;
    }
    // File systems without it, such as SMB's: two steps.
    struct stat status {};
    if (::lstat(to.c_str(), &status) == 0) {
        return EEXIST;
    }
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
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

int synchroniseVolume(const std::string& path)
{
#ifdef __APPLE__
    return ::sync_volume_np(path.c_str(), SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT) == 0 ? 0 : errno;
#else
    const int item = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const int result = item < 0 || ::syncfs(item) != 0 ? errno : 0;
    if (item >= 0) {
        ::close(item);
    }
    return result;
#endif
}

} // namespace platform::cocoa
