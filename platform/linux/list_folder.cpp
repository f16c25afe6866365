// Lists a folder in one pass: the directory itself says of nearly every entry whether it is a folder.

#include "platform/file_manager.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/directory_reader.h"
#include "platform/linux/system_error.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <string>

namespace platform {

namespace {

using linux_os::Descriptor;
using linux_os::DirectoryEntry;
using linux_os::DirectoryReader;
using linux_os::retried;
using linux_os::systemFailure;

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

} // namespace

Outcome listFolder(PathView folder, const EntryVisitor& visitor)
{
    const std::optional<std::string> path = fileSystemRepresentation(folder);
    if (!path) {
        return systemFailure("list", utf8FromUtf16(folder).value_or("the folder"), ENOENT);
    }
    const Descriptor descriptor(retried([&] { return open(path->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!descriptor) {
        return systemFailure("list", *path, errno);
    }
    const bool searchable = isSearchable(descriptor.get());
    DirectoryReader reader(descriptor.get());
    while (const DirectoryEntry* entry = reader.next()) {
        visitor({entry->name, entry->nameLength}, searchable && isFolder(descriptor.get(), *entry));
    }
    return reader.error() == 0 ? Outcome::success() : systemFailure("list", *path, reader.error());
}

} // namespace platform
