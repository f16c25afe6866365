// The asking half of platform/file_manager.h: what stat(2) and statx(2) say about one item, a folder's entries, and the
// sizes of everything below a folder.

#include "platform/file_manager.h"

#include "platform/posix/descriptor.h"
#include "platform/posix/directory_reader.h"
#include "platform/posix/failure.h"
#include "platform/posix/tree_walk.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace platform {

using posix::Descriptor;
using posix::DirectoryEntry;
using posix::DirectoryReader;
using posix::Failure;
using posix::retried;
using posix::systemFailure;
using posix::TreeEntry;

namespace {

// Of times whole seconds, rounded towards the past: systems keep a second before 1970 as the second below and a
// fraction to add.
struct ItemStatus {
    bool isFolder = false;
    std::uint64_t size = 0;
    UnixTime accessed = 0;
    UnixTime modified = 0;
    std::optional<UnixTime> created{}; // empty where the file system doesn't keep it
};

#ifdef __linux__

// No more is asked for, because some file systems have to go far for the rest (statx(2)).
enum class Wanted : unsigned {
    kind = STATX_TYPE,
    size = STATX_SIZE,
    accessTime = STATX_ATIME,
    attributes = STATX_SIZE | STATX_MTIME | STATX_BTIME,
};

// Nothing mounts because somebody looked, as with stat(2).
std::optional<ItemStatus> examine(int folder, const char* name, int flags, Wanted wanted)
{
    struct statx status;
    const auto mask = static_cast<unsigned>(wanted);
    if (retried([&] { return statx(folder, name, AT_NO_AUTOMOUNT | flags, mask, &status); }) != 0) {
        return std::nullopt;
    }
    ItemStatus result{S_ISDIR(status.stx_mode), status.stx_size, status.stx_atime.tv_sec, status.stx_mtime.tv_sec};
    // Birth times are kept by ext4, XFS and Btrfs, but not by every file system.
    if ((status.stx_mask & STATX_BTIME) != 0) {
        result.created = status.stx_btime.tv_sec;
    }
    return result;
}

#else

enum class Wanted { kind, size, accessTime, attributes };

std::optional<ItemStatus> examine(int folder, const char* name, int flags, Wanted)
{
    struct stat status;
    if (retried([&] { return fstatat(folder, name, &status, flags); }) != 0) {
        return std::nullopt;
    }
    ItemStatus result{S_ISDIR(status.st_mode), static_cast<std::uint64_t>(status.st_size), status.st_atimespec.tv_sec,
                      status.st_mtimespec.tv_sec};
    // XNU says 0 or -1 where the file system keeps none.
    if (status.st_birthtimespec.tv_sec != 0 && status.st_birthtimespec.tv_sec != -1) {
        result.created = status.st_birthtimespec.tv_sec;
    }
    return result;
}

#endif

std::optional<ItemStatus> examine(PathView path, int flags, Wanted wanted)
{
    const std::optional<std::string> bytes = fileSystemRepresentation(path);
    return bytes ? examine(AT_FDCWD, bytes->c_str(), flags, wanted) : std::nullopt;
}

// A folder open for reading, or the failure to open it.
Descriptor openFolder(std::string_view action, PathView folder, std::string& path, Outcome& outcome)
{
    const std::optional<std::string> bytes = fileSystemRepresentation(folder);
    path = bytes ? *bytes : utf8FromUtf16(folder).value_or("the folder");
    Descriptor descriptor = bytes ? posix::openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY) : Descriptor();
    if (!descriptor) {
        outcome = systemFailure(action, path, bytes ? errno : ENOENT);
    }
    return descriptor;
}

// Whether the entry leads to a folder, links followed.
bool leadsToFolder(int folder, const char* name)
{
    struct stat status;
    return retried([&] { return fstatat(folder, name, &status, 0); }) == 0 && S_ISDIR(status.st_mode);
}

// Looking anything up in a folder, itself included, takes the right to search it (path_resolution(7)).
bool isSearchable(int folder)
{
    struct stat status;
    return retried([&] { return fstatat(folder, ".", &status, 0); }) == 0 || errno != EACCES;
}

bool isFolder(int folder, const DirectoryEntry& entry)
{
    switch (entry.type) {
    case DT_DIR:
        return true;
    case DT_LNK:
    case DT_UNKNOWN: // some file systems, such as XFS without ftype, keep no type in the directory
        return leadsToFolder(folder, entry.name);
    default:
        return false;
    }
}

// Somebody removed the entry, or put something else in its place, after it was listed.
bool hasVanished(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

constexpr const char* summing = "read the folder";

// Mount points inside the folder are walked like any other sub-folder, each place with what it shows.
class SizeSum : public posix::TreeVisitor {
public:
    std::uint64_t bytes() const { return bytes_; }

    // What can't be examined adds nothing.
    Failure visit(const TreeEntry& entry) override
    {
        if (const auto status = examine(entry.folder, entry.name, 0, Wanted::size)) {
            bytes_ += status->size;
        }
        return {};
    }

    Failure choose(const TreeEntry& folder, Choice&) override { return visit(folder); }

    Failure failed(const TreeEntry& entry, int error) override
    {
        const bool isPassed = !entry.isRoot() && (entry.type == DT_UNKNOWN || hasVanished(error));
        return isPassed          ? Failure{}
               : error == ESTALE ? Failure::because("it was moved meanwhile")
                                 : Failure::ofSource(error);
    }

private:
    std::uint64_t bytes_ = 0;
};

} // namespace

Existence existence(PathView path)
{
    const std::optional<ItemStatus> status = examine(path, 0, Wanted::kind);
    return {status.has_value(), status && status->isFolder};
}

std::optional<Attributes> attributes(PathView path)
{
    const std::optional<ItemStatus> status = examine(path, AT_SYMLINK_NOFOLLOW, Wanted::attributes);
    return status ? std::optional(Attributes{status->size, status->created, status->modified}) : std::nullopt;
}

UnixTime accessTime(PathView path)
{
    const std::optional<ItemStatus> status = examine(path, 0, Wanted::accessTime);
    return status ? status->accessed : 0;
}

// One pass: the directory itself says of nearly every entry whether it is a folder.
Outcome listFolder(PathView folder, const EntryVisitor& visitor)
{
    std::string path;
    Outcome outcome = Outcome::success();
    const Descriptor descriptor = openFolder("list", folder, path, outcome);
    if (!descriptor) {
        return outcome;
    }
    const bool searchable = isSearchable(descriptor.get());
    DirectoryReader reader;
    reader.start(descriptor.get());
    while (const DirectoryEntry* entry = reader.next()) {
        visitor(entry->name, searchable && isFolder(descriptor.get(), *entry));
    }
    return reader.error() == 0 ? Outcome::success() : systemFailure("list", path, reader.error());
}

Outcome sumFolderSizes(PathView folder, std::uint64_t& bytes)
{
    std::string path;
    Outcome outcome = Outcome::success();
    Descriptor descriptor = openFolder(summing, folder, path, outcome);
    if (!descriptor) {
        return outcome;
    }
    SizeSum sum;
    outcome = walkFolder(std::move(descriptor), sum).outcome(summing, path);
    bytes = sum.bytes();
    return outcome;
}

} // namespace platform
