#include "platform/linux/remove_tree.h"

#include "platform/linux/descriptor.h"
#include "platform/linux/directory_reader.h"
#include "platform/linux/folder_chain.h"
#include "platform/linux/system_error.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace platform::linux_os {

namespace {

constexpr const char* action = "remove";

// Some file systems skip entries when others are removed between two reads of a folder, so a folder that isn't empty
// afterwards is read again, but not for ever against somebody who keeps filling it.
constexpr int mostPasses = 1000;

// Whether folders that their owner may not change are made changeable first.
enum class Locks { respected, opened };

void openLock(Locks locks, int folder, const char* name)
{
    if (locks == Locks::opened) {
        // Without success the removal says what is wrong.
        [[maybe_unused]] const int result = fchmodat(folder, name, S_IRWXU, AT_SYMLINK_NOFOLLOW);
    }
}

bool isNotEmpty(int error)
{
    return error == ENOTEMPTY || error == EEXIST; // both are allowed (rmdir(2))
}

class TreeRemoval {
public:
    TreeRemoval(Descriptor root, std::string_view path, Locks locks)
        : m_folders(std::move(root)), m_path(path), m_locks(locks)
    {
    }

    // Leaves the root itself standing, empty.
    Outcome run();

private:
    struct Level {
        std::size_t pathLength; // of this folder in m_path
        int pass = 1;
        bool removedSomething = false;
        PendingNames folders{};
    };

    Outcome removeFolder(const std::string& name);
    Outcome enter(const std::string& name, int pass);
    Outcome leave();
    Outcome removeFiles();

    Outcome failed(std::string_view name, int error) const
    {
        return systemFailure(action, m_path + "/" + std::string(name), error);
    }

    FolderChain m_folders;
    std::vector<Level> m_levels;
    std::string m_path;
    Locks m_locks;
};

Outcome TreeRemoval::run()
{
    m_levels.push_back({m_path.size()});
    Outcome outcome = removeFiles();
    while (outcome.ok()) {
        if (!m_levels.back().folders.empty()) {
            outcome = removeFolder(m_levels.back().folders.pop());
        } else if (m_levels.size() > 1) {
            outcome = leave();
        } else {
            break;
        }
    }
    return outcome;
}

// Empties what isn't empty only after rmdir(2) has said that nothing else is in the way.
Outcome TreeRemoval::removeFolder(const std::string& name)
{
    if (unlinkat(m_folders.current(), name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) {
        m_levels.back().removedSomething = true;
        return Outcome::success();
    }
    return isNotEmpty(errno) ? enter(name, 1) : failed(name, errno);
}

Outcome TreeRemoval::enter(const std::string& name, int pass)
{
    openLock(m_locks, m_folders.current(), name.c_str());
    if (const int error = m_folders.enter(name.c_str())) {
        return failed(name, error);
    }
    m_path.append("/").append(name);
    m_levels.push_back({m_path.size(), pass});
    return removeFiles();
}

Outcome TreeRemoval::leave()
{
    Descriptor left;
    if (const int error = m_folders.leave(left)) {
        return systemFailure(action, m_path, error);
    }
    left.close();
    const int pass = m_levels.back().pass;
    const bool removedSomething = m_levels.back().removedSomething;
    m_levels.pop_back();
    const std::string name = m_path.substr(m_levels.back().pathLength + 1);
    m_path.resize(m_levels.back().pathLength);
    if (unlinkat(m_folders.current(), name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) {
        m_levels.back().removedSomething = true;
        return Outcome::success();
    }
    if (isNotEmpty(errno) && removedSomething && pass < mostPasses) {
        return enter(name, pass + 1);
    }
    return failed(name, errno);
}

// Removes what isn't a folder from the innermost one and notes its folders.
Outcome TreeRemoval::removeFiles()
{
    Level& level = m_levels.back();
    DirectoryReader reader(m_folders.current(), DirectoryReader::deepBuffer);
    while (const DirectoryEntry* entry = reader.next()) {
        if (entry->type == DT_DIR) {
            level.folders.push(entry->name);
            continue;
        }
        if (unlinkat(m_folders.current(), entry->name, 0) == 0 || errno == ENOENT) {
            level.removedSomething = true;
        } else if (errno == EISDIR) {
            level.folders.push(entry->name);
        } else {
            return failed(entry->name, errno);
        }
    }
    return reader.error() == 0 ? Outcome::success() : systemFailure(action, m_path, reader.error());
}

Outcome removeAny(int folder, const char* name, std::string_view path, Locks locks)
{
    if (unlinkat(folder, name, 0) == 0) {
        return Outcome::success();
    }
    if (errno != EISDIR) {
        return systemFailure(action, path, errno);
    }
    for (int pass = 0; unlinkat(folder, name, AT_REMOVEDIR) != 0; ++pass) {
        if (!isNotEmpty(errno) || pass == mostPasses) {
            return systemFailure(action, path, errno);
        }
        openLock(locks, folder, name);
        Descriptor root(retried([&] { return openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
        if (!root) {
            return systemFailure(action, path, errno);
        }
        if (Outcome outcome = TreeRemoval(std::move(root), path, locks).run(); !outcome.ok()) {
            return outcome;
        }
    }
    return Outcome::success();
}

} // namespace

Outcome removeEntry(int folder, const char* name, std::string_view path)
{
    return removeAny(folder, name, path, Locks::respected);
}

void discardEntry(int folder, const char* name) noexcept
{
    const int saved = errno;
    bool isGone = false;
    // Again for what passes, such as a moment without memory. After that it stays behind under its temporary name.
    for (int attempt = 0; attempt < 2 && !isGone; ++attempt) {
        try {
            isGone = removeAny(folder, name, name, Locks::opened).ok();
        } catch (const std::bad_alloc&) {
            continue;
        }
    }
    errno = saved;
}

} // namespace platform::linux_os
