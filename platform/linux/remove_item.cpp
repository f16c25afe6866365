#include "platform/file_manager.h"

#include "platform/linux/item_path.h"
#include "platform/linux/remove_tree.h"
#include "platform/linux/system_error.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace platform {

Outcome removeItem(PathView path)
{
    constexpr const char* action = "remove";
    linux_os::Location item;
    if (Outcome outcome = linux_os::locate(action, path, item); !outcome.ok()) {
        return outcome;
    }
    if (item.path.namesItself()) {
        // rmdir(2) would refuse too, but only after everything inside is gone.
        return linux_os::systemFailure(action, item.path.text, EBUSY);
    }
    if (item.path.endsInSlash) {
        struct stat status {};
        if (fstatat(item.folder.get(), item.path.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            !S_ISDIR(status.st_mode) && !S_ISLNK(status.st_mode)) {
            return linux_os::systemFailure(action, item.path.text, ENOTDIR);
        }
    }
    return linux_os::removeEntry(item.folder.get(), item.path.name.c_str(), item.path.text);
}

} // namespace platform
