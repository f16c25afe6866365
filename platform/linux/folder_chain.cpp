#include "platform/linux/folder_chain.h"

#include <fcntl.h>

#include <cerrno>

namespace platform::linux_os {

namespace {

constexpr int openFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

} // namespace

FolderChain::FolderChain(Descriptor root)
{
    m_levels.push_back({std::move(root), {}});
}

int FolderChain::enter(const char* name)
{
    Descriptor folder(retried([&] { return openat(current(), name, openFolder); }));
    if (!folder) {
        return errno;
    }
    if (m_levels.size() - m_firstOpen >= keptOpen) {
        struct stat status {};
        if (fstat(m_levels[m_firstOpen].folder.get(), &status) != 0) {
            return errno;
        }
        m_levels[m_firstOpen].identity = Identity::of(status);
        m_levels[m_firstOpen].folder.close();
        ++m_firstOpen;
    }
    m_levels.push_back({std::move(folder), {}});
    return 0;
}

int FolderChain::leave(Descriptor& left)
{
    Level& above = m_levels[m_levels.size() - 2];
    if (!above.folder) {
        Descriptor folder(retried([&] { return openat(current(), "..", openFolder); }));
        struct stat status {};
        if (!folder || fstat(folder.get(), &status) != 0) {
            return errno;
        }
        if (Identity::of(status) != above.identity) {
            return ESTALE;
        }
        above.folder = std::move(folder);
        --m_firstOpen;
    }
    left = std::move(m_levels.back().folder);
    m_levels.pop_back();
    return 0;
}

std::string PendingNames::pop()
{
    m_names.pop_back();
    const std::size_t start = m_names.rfind('\0') + 1; // npos + 1 is 0
    std::string name = m_names.substr(start);
    m_names.resize(start);
    return name;
}

} // namespace platform::linux_os
