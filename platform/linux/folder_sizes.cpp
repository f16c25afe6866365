// Adds up a folder's sizes without recursion, entry by entry: a walk keeps no list of what it has yet to visit, so
// neither a wide nor a deep tree costs memory, and at most openLevels descriptors are open at a time. What lies above
// them is closed and comes back through "..", positioned behind the entry that was walked last.
//
// Mount points inside the folder are walked like any other sub-folder, each place with what it shows.

#include "platform/file_manager.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/directory_reader.h"
#include "platform/linux/system_error.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace platform {

namespace {

using linux_os::Descriptor;
using linux_os::DirectoryEntry;
using linux_os::DirectoryReader;
using linux_os::retried;

constexpr std::size_t openLevels = 32;
constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// Somebody removed the entry, or put something else in its place, after it was listed.
bool hasVanished(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

struct OpenFolder {
    explicit OpenFolder(Descriptor folder, std::size_t bufferSize = DirectoryReader::deepBuffer)
        : descriptor(std::move(folder)), reader(descriptor.get(), bufferSize)
    {
    }

    Descriptor descriptor;
    DirectoryReader reader;
};

// A folder between the walk's start and the place where it is now.
struct Level {
    std::unique_ptr<OpenFolder> folder; // null while closed
    std::size_t pathLength = 0;         // of the walk's path up to and with this folder
    off64_t following = 0;              // behind the entry that is being walked
    dev_t device = 0;                   // these two are known while closed: the folder to come back to
    ino_t inode = 0;
};

class SizeWalk {
public:
    SizeWalk(std::string path, Descriptor folder) : m_path(std::move(path))
    {
        push(std::make_unique<OpenFolder>(std::move(folder), DirectoryReader::wideBuffer));
    }

    Outcome run()
    {
        while (m_failure.ok() && !m_levels.empty()) {
            DirectoryReader& reader = m_levels.back().folder->reader;
            if (const DirectoryEntry* entry = reader.next()) {
                count(*entry);
            } else if (reader.error() == 0 || (hasVanished(reader.error()) && m_levels.size() > 1)) {
                leave();
            } else {
                fail(m_path, reader.error());
            }
        }
        return m_failure;
    }

    std::uint64_t bytes() const { return m_bytes; }

private:
    int current() const { return m_levels.back().folder->descriptor.get(); }

    void fail(std::string_view path, int error) { m_failure = linux_os::systemFailure("read the folder", path, error); }

    // Adds the entry's size; what can't be examined adds nothing.
    void count(const DirectoryEntry& entry)
    {
        unsigned char type = entry.type;
        if (type == DT_UNKNOWN) {
            struct stat status;
            if (retried([&] { return fstatat(current(), entry.name, &status, AT_SYMLINK_NOFOLLOW); }) != 0) {
                return;
            }
            type = static_cast<unsigned char>(IFTODT(status.st_mode));
        }
        struct statx status;
        if (retried([&] { return statx(current(), entry.name, AT_NO_AUTOMOUNT, STATX_SIZE, &status); }) == 0) {
            m_bytes += status.stx_size;
        }
        if (type == DT_DIR) {
            descend(entry);
        }
    }

    void descend(const DirectoryEntry& entry)
    {
        Descriptor folder(retried([&] { return openat(current(), entry.name, folderFlags | O_NOFOLLOW); }));
        const int error = errno;
        if (!folder && hasVanished(error)) {
            return;
        }
        Level& parent = m_levels.back();
        parent.following = entry.following;
        if (m_path.back() != '/') {
            m_path += '/';
        }
        m_path.append(entry.name, entry.nameLength);
        if (!folder) {
            fail(m_path, error);
            return;
        }
        closeOldest();
        push(std::make_unique<OpenFolder>(std::move(folder)));
    }

    void push(std::unique_ptr<OpenFolder> folder) { m_levels.push_back({std::move(folder), m_path.size()}); }

    // Makes room for one more open level. The level above the newest always stays open, so that nobody goes up
    // through a folder that may not be searched.
    void closeOldest()
    {
        if (m_levels.size() - m_firstOpen < openLevels) {
            return;
        }
        Level& oldest = m_levels[m_firstOpen];
        struct stat status;
        if (fstat(oldest.folder->descriptor.get(), &status) != 0) {
            fail(std::string_view(m_path).substr(0, oldest.pathLength), errno);
            return;
        }
        oldest.device = status.st_dev;
        oldest.inode = status.st_ino;
        oldest.folder.reset();
        ++m_firstOpen;
    }

    void leave()
    {
        const Level left = std::move(m_levels.back());
        m_levels.pop_back();
        if (m_levels.empty()) {
            return;
        }
        Level& parent = m_levels.back();
        m_path.resize(parent.pathLength);
        if (!parent.folder) {
            reopen(parent, left.folder->descriptor.get());
        }
    }

    void reopen(Level& level, int below)
    {
        Descriptor folder(retried([&] { return openat(below, "..", folderFlags); }));
        struct stat status;
        if (!folder || fstat(folder.get(), &status) != 0 ||
            lseek64(folder.get(), level.following, SEEK_SET) != level.following) {
            fail(m_path, errno);
            return;
        }
        if (status.st_dev != level.device || status.st_ino != level.inode) {
            m_failure = linux_os::failure("read the folder", m_path, "it was moved meanwhile");
            return;
        }
        level.folder = std::make_unique<OpenFolder>(std::move(folder));
        --m_firstOpen;
    }

    std::string m_path;
    std::vector<Level> m_levels;
    std::size_t m_firstOpen = 0; // levels above the first open one are closed
    std::uint64_t m_bytes = 0;
    Outcome m_failure;
};

} // namespace

Outcome sumFolderSizes(PathView folder, std::uint64_t& bytes)
{
    const std::optional<std::string> path = fileSystemRepresentation(folder);
    if (!path) {
        return linux_os::systemFailure("read the folder", utf8FromUtf16(folder).value_or("there"), ENOENT);
    }
    Descriptor descriptor(retried([&] { return open(path->c_str(), folderFlags); }));
    if (!descriptor) {
        return linux_os::systemFailure("read the folder", *path, errno);
    }
    SizeWalk walk(*path, std::move(descriptor));
    Outcome outcome = walk.run();
    bytes = walk.bytes();
    return outcome;
}

} // namespace platform
