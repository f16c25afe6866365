// What GNUstep has no Core Foundation and Core Graphics for, and Linux no copyfile(3). The resources are those of
// Linux, compiled in, and single items are copied as Linux copies them.

#include "platform/desktop.h"
#include "platform/linux/copy_data.h"
#include "platform/linux/copy_metadata.h"
#include "platform/macos/gui_session.h"
#include "platform/macos/system_copy.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>

namespace platform {

bool macos::hasGuiSession()
{
    const char* display = std::getenv("DISPLAY");
    return display != nullptr && *display != 0;
}

bool showAlert(std::string_view, std::string_view)
{
    return false;
}

namespace macos {

using linux_os::Owner;
using posix::Failure;

namespace {

Failure copyMetadata(int source, const struct stat& status, int target)
{
    struct stat made {};
    return fstat(target, &made) == 0 ? linux_os::keepMetadata(source, target, status, Owner::of(made), false)
                                     : Failure::ofTarget(errno);
}

} // namespace

int materialize(int, struct stat&)
{
    return 0;
}

Failure copyFile(int source, const struct stat& status, int folder, const char* name, posix::Descriptor& made)
{
    made = posix::openAt(folder, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    Failure failure = made ? linux_os::DataCopier().copy(source, made.get(), status, false) : Failure::ofTarget(errno);
    return failure ? failure : copyMetadata(source, status, made.get());
}

Failure copyFolderMetadata(int source, const struct stat& status, int target)
{
    return copyMetadata(source, status, target);
}

Failure copySpecialMetadata(int sourceFolder, const char* sourceName, int targetFolder, const char* targetName,
                            const struct stat& status)
{
    return linux_os::keepEntryMetadata(sourceFolder, sourceName, targetFolder, targetName, status);
}

} // namespace macos

} // namespace platform
