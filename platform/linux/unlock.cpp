#include "platform/posix/unlock.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace platform {

void posix::unlock(int folder, const char* name, unsigned char type)
{
    if (type == DT_DIR) {
        [[maybe_unused]] const int result = fchmodat(folder, name, S_IRWXU, AT_SYMLINK_NOFOLLOW);
    }
}

} // namespace platform
