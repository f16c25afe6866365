#include "platform/macos/source_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <vector>

namespace platform::macos {

namespace {

struct Entry {
    int folder;       // open, or AT_FDCWD
    std::string name; // there; the root's is a path
    std::string path; // below the root: "" or "/a/b"
    struct stat status {};
};

// What a walk does at each entry, before and after what is in it.
struct Steps {
    std::function<Outcome(const Entry&)> enter;
    std::function<Outcome(const Entry&)> leave = [](const Entry&) { return Outcome::success(); };
    std::function<Outcome(const Entry&, int error)> failed; // an entry couldn't be examined or read
};

struct Close {
    void operator()(DIR* folder) const { ::closedir(folder); }
};
using Folder = std::unique_ptr<DIR, Close>;

Folder openFolder(const Entry& entry)
{
    const int number = ::openat(entry.folder, entry.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    Folder folder(number < 0 ? nullptr : ::fdopendir(number));
    if (!folder && number >= 0) {
        const int error = errno;
        ::close(number);
        errno = error;
    }
    return folder;
}

// All names at once: some file systems skip entries when others are removed between two reads. Answers an errno value.
int readNames(DIR* folder, std::vector<std::string>& names)
{
    for (;;) {
        errno = 0;
        const dirent* found = ::readdir(folder);
        if (found == nullptr) {
            return errno;
        }
        if (std::strcmp(found->d_name, ".") != 0 && std::strcmp(found->d_name, "..") != 0) {
            names.emplace_back(found->d_name);
        }
    }
}

Outcome walk(Entry entry, const Steps& steps);

Outcome walkInside(const Entry& entry, const Steps& steps)
{
    const Folder folder = openFolder(entry);
    std::vector<std::string> names;
    const int error = folder ? readNames(folder.get(), names) : errno;
    Outcome outcome = error == 0 ? Outcome::success() : steps.failed(entry, error);
    for (std::size_t next = 0; outcome.ok() && next < names.size(); ++next) {
        outcome = walk({::dirfd(folder.get()), names[next], entry.path + "/" + names[next]}, steps);
    }
    return outcome;
}

Outcome walk(Entry entry, const Steps& steps)
{
    if (::fstatat(entry.folder, entry.name.c_str(), &entry.status, AT_SYMLINK_NOFOLLOW) != 0) {
        return steps.failed(entry, errno);
    }
    Outcome outcome = steps.enter(entry);
    if (outcome.ok() && S_ISDIR(entry.status.st_mode)) {
        outcome = walkInside(entry, steps);
    }
    return outcome.ok() ? steps.leave(entry) : outcome;
}

Outcome because(std::string_view action, const std::string& path, std::string_view reason)
{
    return Outcome::failure(
        std::string("could not ").append(action).append(" ").append(shortened(path)).append(": ").append(reason));
}

constexpr std::string_view changedMeanwhile = "it was changed while it was being moved";

// What stands in the way of removing the entry; 0 when nothing can be seen.
int errorOfRemoving(const Entry& entry)
{
#ifdef __APPLE__
    // Asks for everything at once: locks, lists, the folder's permissions, sticky bit (access(2)). Of a link it would
    // ask what that leads to.
    if (S_ISLNK(entry.status.st_mode)) {
        return 0;
    }
    return ::faccessat(entry.folder, entry.name.c_str(), _DELETE_OK, AT_EACCESS) == 0 ? 0 : errno;
#else
    const std::string above = entry.name.substr(0, entry.name.rfind('/') + 1) + ".";
    return ::faccessat(entry.folder, above.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
#endif
}

// Gives a file that was changed just now a moment, after which another change can be told from that one, and looks at
// it anew. Answers an errno value.
int rest(const Entry& entry, struct stat& status)
{
    const std::int64_t left = S_ISREG(status.st_mode) ? posix::timeUntilNextStamp(status) : 0;
    if (left == 0) {
        return 0;
    }
    constexpr std::int64_t second = 1'000'000'000;
    const timespec time{static_cast<time_t>(left / second), static_cast<long>(left % second)};
    ::nanosleep(&time, nullptr);
    return ::fstatat(entry.folder, entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

// Not the number of the file: on ExFAT and SMB it may be another one under another name.
bool isAsBefore(const struct stat& now, const struct stat& before)
{
#ifdef __APPLE__
    const timespec& time = now.st_mtimespec;
    const timespec& timeBefore = before.st_mtimespec;
#else
    const timespec& time = now.st_mtim;
    const timespec& timeBefore = before.st_mtim;
#endif
    return now.st_dev == before.st_dev && now.st_size == before.st_size && time.tv_sec == timeBefore.tv_sec &&
           time.tv_nsec == timeBefore.tv_nsec;
}

// Where a file system has no extended attributes, a Mac keeps those of "x" in "._x", and copies, renames and removes
// the two together.
bool belongsToAnother(const Entry& entry, const std::string& copy)
{
    const std::size_t start = entry.path.rfind('/') + 1;
    struct stat status {};
    return entry.path.compare(start, 2, "._") == 0 &&
           ::lstat((copy + entry.path.substr(0, start) + entry.path.substr(start + 2)).c_str(), &status) == 0;
}

// Removes a file that nobody can find any more, unless it was changed until then. Answers an errno value; ESTALE: it
// was.
int removeHidden(const Entry& entry)
{
    const std::string hidden = temporaryNameBeside(entry.name);
    if (const int error = renameExclusively(entry.folder, entry.name.c_str(), entry.folder, hidden.c_str())) {
        return error;
    }
    struct stat now {};
    int error = ::fstatat(entry.folder, hidden.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0 ? errno
                : !isAsBefore(now, entry.status)                                        ? ESTALE
                                                                                        : 0;
    if (error == 0 && ::unlinkat(entry.folder, hidden.c_str(), 0) != 0) {
        error = errno;
    }
    if (error != 0) {
        renameExclusively(entry.folder, hidden.c_str(), entry.folder, entry.name.c_str());
    }
    return error;
}

} // namespace

Outcome SourceTree::examine()
{
    const auto failed = [this](const Entry& entry, int error) {
        return posixFailure(action_, source_.path + entry.path, error);
    };
    const auto note = [&](const Entry& entry) {
        int error = 0;
        struct stat status = entry.status;
        if (isMove()) {
            error = status.st_dev != source_.status.st_dev ? EBUSY : errorOfRemoving(entry);
            error = error == 0 ? rest(entry, status) : error;
        }
        record_.add(posix::placeOf(posix::rootPlace, entry.path), status);
        return error == 0 ? Outcome::success() : failed(entry, error);
    };
    Outcome outcome = walk({AT_FDCWD, source_.path, {}}, {.enter = note, .failed = failed});
    record_.close();
    return outcome;
}

Outcome SourceTree::requireCopied(const std::string& copy, const std::string& target) const
{
    const auto changed = [this](const Entry& entry) {
        return isMove() ? because(action_, source_.path + entry.path, changedMeanwhile) : Outcome::success();
    };
    const auto compare = [&](const Entry& entry) {
        if (!record_.holds(posix::placeOf(posix::rootPlace, entry.path), entry.status)) {
            return changed(entry);
        }
        struct stat made {};
        if (::lstat((copy + entry.path).c_str(), &made) != 0) {
            // What is missing from a mere copy, the system has left out, or named otherwise, as it saw fit.
            const int error = errno;
            const bool isMissed = isMove() && !belongsToAnother(entry, copy);
            return isMissed ? posixFailure("write", target + entry.path, error) : Outcome::success();
        }
        const bool isWhole = (made.st_mode & S_IFMT) == (entry.status.st_mode & S_IFMT) &&
                             (!S_ISREG(made.st_mode) || made.st_size == entry.status.st_size);
        return isWhole ? Outcome::success() : posixFailure("write", target + entry.path, EIO);
    };
    return walk({AT_FDCWD, source_.path, {}},
                {.enter = compare, .failed = [&](const Entry& entry, int) { return changed(entry); }});
}

Outcome SourceTree::remove() const
{
    const auto failed = [this](const Entry& entry, int error) {
        if (error == ENOENT && !entry.path.empty()) {
            return Outcome::success(); // gone already: nothing is lost by it
        }
        return error == ESTALE ? because(action_, source_.path + entry.path, changedMeanwhile)
                               : posixFailure(action_, source_.path + entry.path, error);
    };
    const auto compare = [&](const Entry& entry) {
        return record_.holds(posix::placeOf(posix::rootPlace, entry.path), entry.status) ? Outcome::success()
                                                                                         : failed(entry, ESTALE);
    };
    const auto take = [&](const Entry& entry) {
        const int flags = S_ISDIR(entry.status.st_mode) ? AT_REMOVEDIR : 0;
        const int error = S_ISREG(entry.status.st_mode)                              ? removeHidden(entry)
                          : ::unlinkat(entry.folder, entry.name.c_str(), flags) != 0 ? errno
                                                                                     : 0;
        return error == 0 ? Outcome::success() : failed(entry, error);
    };
    return walk({AT_FDCWD, source_.path, {}}, {.enter = compare, .leave = take, .failed = failed});
}

void discard(const std::string& path)
{
    const auto open = [](const Entry& entry) {
        unlock(entry.folder, entry.name.c_str());
        return Outcome::success();
    };
    const auto take = [](const Entry& entry) {
        const int flags = S_ISDIR(entry.status.st_mode) ? AT_REMOVEDIR : 0;
        ::unlinkat(entry.folder, entry.name.c_str(), flags); // what stays is seen by its name
        return Outcome::success();
    };
    (void)walk({AT_FDCWD, path, {}},
               {.enter = open, .leave = take, .failed = [](const Entry&, int) { return Outcome::success(); }});
}

} // namespace platform::macos
