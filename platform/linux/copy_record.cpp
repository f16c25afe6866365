#include "platform/linux/copy_record.h"

#include <algorithm>
#include <array>
#include <functional>

namespace platform::linux_os {

namespace {

std::uint64_t hash(std::string_view bytes)
{
    static_assert(sizeof(std::size_t) == sizeof(std::uint64_t));
    return std::hash<std::string_view>()(bytes);
}

std::uint64_t fingerprint(std::string_view path, const struct stat& status, bool withChange)
{
    std::array<std::uint64_t, 7> facts{hash(path), status.st_mode & S_IFMT};
    if (!S_ISDIR(status.st_mode)) {
        facts[2] = static_cast<std::uint64_t>(status.st_size);
        facts[3] = static_cast<std::uint64_t>(status.st_mtim.tv_sec);
        facts[4] = static_cast<std::uint64_t>(status.st_mtim.tv_nsec);
    }
    if (!S_ISDIR(status.st_mode) && withChange) {
        facts[5] = static_cast<std::uint64_t>(status.st_ctim.tv_sec);
        facts[6] = static_cast<std::uint64_t>(status.st_ctim.tv_nsec) + 1; // never as without
    }
    return hash({reinterpret_cast<const char*>(facts.data()), sizeof facts});
}

} // namespace

void CopyRecord::add(std::string_view path, const struct stat& status)
{
    prints_.push_back(fingerprint(path, status, status.st_nlink == 1));
}

void CopyRecord::close()
{
    std::sort(prints_.begin(), prints_.end());
}

bool CopyRecord::holds(std::string_view path, const struct stat& status) const
{
    const auto has = [&](bool withChange) {
        return std::binary_search(prints_.begin(), prints_.end(), fingerprint(path, status, withChange));
    };
    return has(true) || has(false);
}

} // namespace platform::linux_os
