#include "platform/posix/restrictions.h"

#include "platform/posix/names.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace platform::posix {

// Nothing of an item itself forbids its rename.
int publish(int fromFolder, const char* from, int toFolder, const char* to)
{
    return renameExclusively(fromFolder, from, toFolder, to);
}

void unlock(int folder, const char* name, unsigned char type)
{
    if (type == DT_DIR) {
        [[maybe_unused]] const int result = fchmodat(folder, name, S_IRWXU, AT_SYMLINK_NOFOLLOW);
    }
}

} // namespace platform::posix
