#include "platform/linux/hard_links.h"

#include <fcntl.h>
#include <unistd.h>

#include <ctime>
#include <utility>

namespace platform::linux_os {

namespace {

bool isSame(const timespec& one, const timespec& other)
{
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

// Some file systems give one number to several items.
bool isUnchanged(const struct stat& now, const struct stat& before)
{
    return now.st_mode == before.st_mode && now.st_size == before.st_size && now.st_nlink == before.st_nlink &&
           isSame(now.st_mtim, before.st_mtim) && isSame(now.st_ctim, before.st_ctim);
}

} // namespace

bool HardLinks::link(const struct stat& status, int root, int target, const char* name)
{
    if (status.st_nlink < 2 || copied_.empty()) {
        return false;
    }
    const auto found = copied_.find(posix::Identity::of(status));
    // Below the root nobody else can put a link into the way.
    if (found == copied_.end() || !isUnchanged(status, found->second.status) ||
        linkat(root, found->second.path.c_str() + 1, target, name, 0) != 0) {
        return false;
    }
    if (--found->second.left == 0) {
        copied_.erase(found);
    }
    return true;
}

void HardLinks::remember(const struct stat& status, std::string path)
{
    if (status.st_nlink > 1) {
        copied_.insert_or_assign(posix::Identity::of(status), Copied{std::move(path), status, status.st_nlink - 1});
    }
}

} // namespace platform::linux_os
