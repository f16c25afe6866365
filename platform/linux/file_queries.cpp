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

// Asks for no more than `mask`, for some file systems have to go far for the rest. Nothing mounts because somebody
// looked, as with stat(2).
std::optional<struct statx> examine(PathView path, int flags, unsigned int mask)
{
    const std::optional<std::string> bytes = fileSystemRepresentation(path);
    struct statx status;
    if (!bytes ||
        retried([&] { return statx(AT_FDCWD, bytes->c_str(), AT_NO_AUTOMOUNT | flags, mask, &status); }) != 0) {
        return std::nullopt;
    }
    return status;
}

// The kernel keeps a second before 1970 as the second below and a fraction to add, so dropping the fraction rounds
// towards the past.
UnixTime wholeSeconds(const statx_timestamp& time)
{
    return time.tv_sec;
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
        struct statx status;
        if (retried([&] { return statx(entry.folder, entry.name, AT_NO_AUTOMOUNT, STATX_SIZE, &status); }) == 0) {
            bytes_ += status.stx_size;
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
    const std::optional<struct statx> status = examine(path, 0, STATX_TYPE);
    return {status.has_value(), status && S_ISDIR(status->stx_mode)};
}

std::optional<Attributes> attributes(PathView path)
{
    const std::optional<struct statx> status =
        examine(path, AT_SYMLINK_NOFOLLOW, STATX_SIZE | STATX_MTIME | STATX_BTIME);
    if (!status) {
        return std::nullopt;
    }
    Attributes attributes;
    attributes.size = status->stx_size;
    attributes.modificationDate = wholeSeconds(status->stx_mtime);
    // Birth times are kept by ext4, XFS and Btrfs, but not by every file system (statx(2), stx_mask).
    if ((status->stx_mask & STATX_BTIME) != 0) {
        attributes.creationDate = wholeSeconds(status->stx_btime);
    }
    return attributes;
}

UnixTime accessTime(PathView path)
{
    const std::optional<struct statx> status = examine(path, 0, STATX_ATIME);
    return status ? wholeSeconds(status->stx_atime) : 0;
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
