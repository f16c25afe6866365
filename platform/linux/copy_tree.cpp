#include "platform/linux/copy_tree.h"

#include "platform/linux/directory_reader.h"
#include "platform/linux/folder_chain.h"
#include "platform/linux/removability.h"

#include <fcntl.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

namespace platform::linux_os {

namespace {

Descriptor duplicate(int descriptor)
{
    return Descriptor(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
}

class TreeCopy {
public:
    TreeCopy(CopyPurpose purpose, Descriptor source, Descriptor target, Identity forbidden)
        : m_purpose(purpose), m_sources(std::move(source)), m_targets(std::move(target)), m_forbidden(forbidden)
    {
    }

    CopyFailure run();

    // Where run() failed, below the roots: "" or "/a/b".
    const std::string& path() const { return m_path; }

private:
    struct Level {
        struct stat status; // of the source, from before its entries were read
        std::size_t pathLength;
        PendingNames folders;
    };

    CopyFailure start();
    CopyFailure enter(const std::string& name);
    CopyFailure leave();
    CopyFailure openLevel();
    CopyFailure copyEntries();
    CopyFailure copyEntry(const DirectoryEntry& entry);

    CopyPurpose m_purpose;
    EntryCopier m_copier;
    FolderChain m_sources;
    FolderChain m_targets;
    Identity m_forbidden;
    Owner m_newcomer; // whom the entries belong to as they are made
    std::vector<Level> m_levels;
    std::string m_path;
};

CopyFailure TreeCopy::run()
{
    CopyFailure failed = start();
    while (!failed && !m_levels.empty()) {
        PendingNames& folders = m_levels.back().folders;
        failed = folders.empty() ? leave() : enter(folders.pop());
    }
    return failed;
}

CopyFailure TreeCopy::start()
{
    struct stat made {};
    if (fstat(m_targets.current(), &made) != 0) {
        return CopyFailure::ofTarget(errno);
    }
    // New entries belong to whom the root belongs to: the set-group-ID bit of a folder above was handed down to it,
    // or else plays no part.
    m_newcomer = Owner::of(made);
    return openLevel();
}

CopyFailure TreeCopy::enter(const std::string& name)
{
    m_path.append("/").append(name);
    if (const int error = m_sources.enter(name.c_str())) {
        return CopyFailure::ofSource(error);
    }
    if (mkdirat(m_targets.current(), name.c_str(), S_IRWXU) != 0) {
        return CopyFailure::ofTarget(errno);
    }
    if (const int error = m_targets.enter(name.c_str())) {
        return CopyFailure::ofTarget(error);
    }
    return openLevel();
}

CopyFailure TreeCopy::openLevel()
{
    Level level{{}, m_path.size(), {}};
    if (fstat(m_sources.current(), &level.status) != 0) {
        return CopyFailure::ofSource(errno);
    }
    if (Identity::of(level.status) == m_forbidden) {
        return CopyFailure::because("a folder can't be put into itself");
    }
    m_levels.push_back(std::move(level));
    return copyEntries();
}

// Everything but folders, whose names are kept for later: their number is bounded by memory, that of files is not.
CopyFailure TreeCopy::copyEntries()
{
    const std::size_t pathLength = m_path.size();
    bool first = true;
    DirectoryReader reader(m_sources.current(), DirectoryReader::deepBuffer);
    while (const DirectoryEntry* entry = reader.next()) {
        if (m_purpose == CopyPurpose::move && std::exchange(first, false)) {
            if (const int error = errorOfRemovingFrom(m_sources.current())) {
                return CopyFailure::ofSource(error);
            }
        }
        m_path.append("/").append(entry->name);
        if (const CopyFailure failed = copyEntry(*entry)) {
            return failed;
        }
        m_path.resize(pathLength);
    }
    return reader.error() == 0 ? CopyFailure{} : CopyFailure::ofSource(reader.error());
}

CopyFailure TreeCopy::copyEntry(const DirectoryEntry& entry)
{
    unsigned char type = entry.type;
    if (type == DT_UNKNOWN) {
        struct stat status {};
        if (fstatat(m_sources.current(), entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return CopyFailure::ofSource(errno);
        }
        type = static_cast<unsigned char>(IFTODT(status.st_mode));
    }
    if (m_purpose == CopyPurpose::move) {
        if (const int error = errorOfRemovingEntry(m_sources.current(), m_levels.back().status, entry.name)) {
            return CopyFailure::ofSource(error);
        }
    }
    if (type == DT_DIR) {
        m_levels.back().folders.push(entry.name);
        return {};
    }
    if (type == DT_REG) {
        return m_copier.copyFile(m_sources.current(), entry.name, m_targets.current(), m_newcomer);
    }
    return copySpecial(m_sources.current(), entry.name, m_targets.current(), entry.name);
}

// The folder's metadata come after its entries: its times wouldn't stay, and a read-only folder couldn't be filled.
CopyFailure TreeCopy::leave()
{
    Descriptor source;
    Descriptor target;
    const bool isRoot = m_levels.size() == 1;
    if (!isRoot) {
        if (const int error = m_sources.leave(source)) {
            return CopyFailure::ofSource(error);
        }
        if (const int error = m_targets.leave(target)) {
            return CopyFailure::ofTarget(error);
        }
    }
    const CopyFailure failed =
        keepMetadata(isRoot ? m_sources.current() : source.get(), isRoot ? m_targets.current() : target.get(),
                     m_levels.back().status, m_newcomer);
    if (failed) {
        return failed;
    }
    m_levels.pop_back();
    m_path.resize(m_levels.empty() ? 0 : m_levels.back().pathLength);
    return {};
}

} // namespace

Outcome copyTree(CopyPurpose purpose, int source, int target, std::string_view sourcePath, std::string_view targetPath,
                 Identity forbidden)
{
    Descriptor sourceRoot = duplicate(source);
    Descriptor targetRoot = duplicate(target);
    if (!sourceRoot || !targetRoot) {
        return systemFailure(actionOf(purpose), sourcePath, errno);
    }
    TreeCopy copy(purpose, std::move(sourceRoot), std::move(targetRoot), forbidden);
    if (const CopyFailure failed = copy.run()) {
        return failed.outcome(actionOf(purpose), std::string(sourcePath) + copy.path(),
                              std::string(targetPath) + copy.path());
    }
    return Outcome::success();
}

} // namespace platform::linux_os
