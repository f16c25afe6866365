#include "platform/posix/hard_links.h"

#include "platform/posix/copy_record.h"
#include "platform/posix/file_times.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace platform::posix {

namespace {

// Some file systems give one number to several items.
bool isUnchanged(const struct stat& now, const struct stat& before)
{
    return now.st_mode == before.st_mode && now.st_nlink == before.st_nlink && hasSameContent(now, before) &&
           areEqual(changeTime(now), changeTime(before));
}

} // namespace

bool HardLinks::link(const struct stat& status, int root, int target, const char* name)
{
    if (status.st_nlink < 2 || copied_.empty()) {
        return false;
    }
    const auto found = copied_.find(Identity::of(status));
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
        copied_.insert_or_assign(Identity::of(status),
                                 Copied{std::move(path), status, static_cast<nlink_t>(status.st_nlink - 1)});
    }
}

} // namespace platform::posix
